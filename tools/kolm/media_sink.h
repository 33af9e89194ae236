// Opens what frames go to.
#pragma once

#include <memory>
#include <string>

#include "tools/kolm/media.h"

namespace kolm {

struct SinkOptions {
  // A picture, a numbered sequence of pictures, a video or "-".
  std::string output;
  bool overwrite = false;
  std::string format;  // a muxer's name; empty: by the output's extension, on "-" as the source
  std::string codec;   // an encoder's name; empty: the format's own
  int quality = -1;    // the encoder's constant rate factor; -1: 18
};

// Throws Failure if OpenSink would refuse the output, so that no work is done in vain.
void CheckSink(const SinkOptions& options);

// The shape's source must live as long as the sink. Throws Failure.
std::unique_ptr<FrameSink> OpenSink(const SinkOptions& options, const MediaShape& shape);

}  // namespace kolm
