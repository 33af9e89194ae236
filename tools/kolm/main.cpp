// The command line tool: tries the module's exports on pictures and videos.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

extern "C" {
#include <libavutil/log.h>
}

#include "tools/kolm/byte_output.h"
#include "tools/kolm/command_line.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/debug_log.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/library_messages.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/stop_request.h"

namespace kolm {
namespace {

constexpr const char* kFooter = R"(
Examples:
  kolm effects
  kolm sheet effects.png
  kolm sheet -y portrait.jpg effects.png
  kolm apply -e sepia portrait.jpg old.png
  kolm apply -e box-blur:4 -e 12 portrait.jpg drawing.png
  kolm apply -e sketch --split talk.mp4 drawn.mkv
  ffmpeg -i talk.mp4 -f yuv4mpegpipe - | kolm apply -e sepia - - | ffplay -
  kolm track-sheet talk.mp4 strip.png
  kolm track --overlay --trace talk.jsonl talk.mp4 tracked.mp4
  kolm store create KolmBg.img beach.jpg window.png
  kolm background --store KolmBg.img --record 2 portrait.jpg travelling.png
  kolm gallery portrait.jpg effects
  kolm view /dev/video0

Exit codes:
  0  done
  1  an unexpected error
  2  the command line is not understood
  3  the input cannot be read, or is no picture or video
  4  a picture or frame is too small or too large
  5  there is no such effect
  6  a parameter is out of its range
  7  the output exists already, and -y is not given
  8  the output, standard output or the debug log cannot be written
  9  a store cannot be read, is empty, or is no whole number of records
  10 there is no such record, or no room for more
  11 the input broke off or is damaged; the output holds what could be done
  12 nobody reads standard output any more
  13 there is no display for a window
  130 stopped by SIGINT, SIGTERM or SIGHUP; the output holds what was done until then)";

// The log is added to a file that exists; one that is also an input or output would be spoilt.
void CheckDebugLog(const std::string& log, int argumentCount, char** arguments) {
  // A value may be an argument of its own, or stand behind its option's name.
  const auto isLog = [&](const std::string& argument) {
    const bool isOption = argument.starts_with("--") && argument.find('=') != std::string::npos;
    return IsSameFile(log, isOption ? argument.substr(argument.find('=') + 1) : argument);
  };
  if (log.empty() || log == "-" || std::count_if(arguments, arguments + argumentCount, isLog) < 2) {
    return;
  }
  throw Failure(ExitCode::CommandLine, "the debug log " + Quoted(log) +
                                           " is named as another file, too; expected one of its "
                                           "own for --debug-log");
}

void Run(int argumentCount, char** arguments) {
  CLI::App app(
      "Tries Kolm's video effects, background replacement and face tracking on pictures and "
      "videos.",
      "kolm");
  app.set_version_flag("--version", "kolm " KOLM_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  std::string debugLog;
  app.add_option("--debug-log", debugLog,
                 "Append the module's debugger lines to FILE; - is standard error")
      ->type_name("FILE");

  Work work;
  AddEffectsCommand(app, work);
  AddSheetCommand(app, work);
  AddApplyCommand(app, work);
  AddStoreCommand(app, work);
  AddTrackCommand(app, work);
  AddTrackSheetCommand(app, work);
  AddBackgroundCommand(app, work);
  AddBackgroundSheetCommand(app, work);
  AddGalleryCommand(app, work);
  AddBenchCommand(app, work);
  AddViewCommand(app, work);

  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::Success& help) {
    app.exit(help);
    return;
  } catch (const CLI::ParseError& error) {
    throw Failure(ExitCode::CommandLine, ExplainError(app, error));
  }
  CheckDebugLog(debugLog, argumentCount, arguments);
  DirectDebugLines(debugLog);
  work();
  CheckDebugLines();
}

// With what is printed: where that cannot be written, it ends the command at once.
void RunAndPrint(int argumentCount, char** arguments) {
  std::cout.exceptions(std::ios::badbit);
  // Which would flush it, and throw, while a failure is told.
  std::cerr.tie(nullptr);
  try {
    Run(argumentCount, arguments);
    std::cout.flush();
  } catch (const std::ios::failure&) {
    // Unwinding has made no system call that could have failed.
    throw StandardOutputFailure(errno);
  }
}

// The number of a closed stream would go to the next file that is opened, which would then get what
// is printed. A stream that takes nothing keeps it.
void FillClosedStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) < 0) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace
}  // namespace kolm

int main(int argumentCount, char** arguments) {
  // A write beyond the allowed file size or into a closed pipe then fails like any other.
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  kolm::CleanUpOnSignals();
  kolm::FillClosedStreams();
  kolm::WatchStandardError();
  av_log_set_level(AV_LOG_QUIET);
  try {
    kolm::RunAndPrint(argumentCount, arguments);
    return EXIT_SUCCESS;
  } catch (const kolm::Failure& failure) {
    if (*failure.what() != '\0') std::cerr << "kolm: " << failure.what() << '\n';
    return static_cast<int>(failure.code);
  } catch (const std::exception& error) {
    std::cerr << "kolm: unexpected error: " << error.what() << '\n';
    return static_cast<int>(kolm::ExitCode::Unexpected);
  }
}
