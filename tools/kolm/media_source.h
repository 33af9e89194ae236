// Opens what frames come from.
#pragma once

#include <memory>
#include <string>

#include "tools/kolm/media.h"

namespace kolm {

struct SourceOptions {
  // A picture, a numbered sequence of pictures (with %d or %04d), a video, /dev/videoN or "-".
  std::string input;
  // Of raw frames, or wished for from a device; 0 where not given.
  int width = 0, height = 0;
  AVRational rate = {0, 1};
};

// Reads until the first frame is there. Throws Failure.
std::unique_ptr<FrameSource> OpenSource(const SourceOptions& options);

// Where the bytes of an input are: of standard input, too.
std::string InputPath(const std::string& input);

// For messages.
std::string InputName(const SourceOptions& options);

// Of a pattern such as "frame-%04d.png".
bool IsNumberedName(const std::string& name);

}  // namespace kolm
