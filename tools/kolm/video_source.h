// Videos and cameras by FFmpeg's libraries.
#pragma once

#include <memory>
#include <string>

#include "tools/kolm/media_source.h"

namespace kolm {

// Each reads until the first frame is there and throws Failure.
std::unique_ptr<FrameSource> OpenVideo(const SourceOptions& options);
std::unique_ptr<FrameSource> OpenDevice(const SourceOptions& options);

// A container in a pipe or the like, which is taken over and of which the bytes `start` have been
// read already.
std::unique_ptr<FrameSource> OpenVideoStream(int file, const std::string& start,
                                             const SourceOptions& options);

}  // namespace kolm
