// Videos by FFmpeg's libraries.
#pragma once

#include <memory>

#include "tools/kolm/media_sink.h"

namespace kolm {

// Throws Failure if no format or encoder is found for the output.
void CheckVideoFormat(const SinkOptions& options);

std::unique_ptr<FrameSink> OpenVideoSink(const SinkOptions& options, const MediaShape& shape);

}  // namespace kolm
