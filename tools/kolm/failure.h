// How the tool ends when it cannot do what it was asked to.
#pragma once

#include <stdexcept>
#include <string>

namespace kolm {

// The tool's exit codes; the text of --help lists them too.
enum class ExitCode {
  Success = 0,
  Unexpected = 1,         // anything without a code of its own
  CommandLine = 2,        // options or arguments that are not understood
  UnreadablePicture = 3,  // or video, or device
  PictureSize = 4,        // a picture that is too small or too large
  UnknownEffect = 5,
  ParameterRange = 6,
  OutputExists = 7,
  UnwritableOutput = 8,
  UnusableStore = 9,  // a store that cannot be read or is no whole number of records
  NoSuchRecord = 10,
  BrokenInput = 11,  // it ended early or is damaged; the output holds what could be done
  ClosedPipe = 12,   // nobody reads standard output any more
  NoDisplay = 13,    // no window can be opened
  Stopped = 130,     // by SIGINT, SIGTERM or SIGHUP; the output holds what was done until then
};

// Ends the tool with this exit code; the text says what is wrong and what was expected.
struct Failure : std::runtime_error {
  Failure(ExitCode failureCode, const std::string& text)
      : std::runtime_error(text), code(failureCode) {}
  ExitCode code;
};

}  // namespace kolm
