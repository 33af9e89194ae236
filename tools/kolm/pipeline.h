// From a source through the module to a sink: reading, work and writing overlap.
#pragma once

#include <functional>
#include <string>

#include "tools/kolm/media_sink.h"
#include "tools/kolm/media_source.h"

namespace CLI {
class App;
}

namespace kolm {

// What every command for pictures and videos is told.
struct MediaArguments {
  std::string input, output, size, rate, format, codec;
  int quality = -1;
  bool overwrite = false, quiet = false;
};

// For the text of --help.
extern const char* const kAboutMedia;

// Adds INPUT, OUTPUT and their options; `arguments` must live as long as `command`.
void AddMediaArguments(CLI::App* command, MediaArguments& arguments);

// The options that `size` and `rate` tell of. Throws Failure.
SourceOptions ReadSourceOptions(const MediaArguments& arguments);

// Makes of a packed frame another of the same size: called frame after frame on one thread.
using FrameWork = std::function<FramePointer(FramePointer)>;

// Takes all frames through the work that `makeWork` makes for the source's shape. Throws Failure,
// also when the input broke off or a stop was asked for: then the output is whole, but shorter.
void ProcessMedia(const MediaArguments& arguments,
                  const std::function<FrameWork(const MediaShape&)>& makeWork);

}  // namespace kolm
