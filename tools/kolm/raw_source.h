// Bare packed frames, one behind the other.
#pragma once

#include <memory>
#include <string>

#include "tools/kolm/media_source.h"

namespace kolm {

// Takes over `file`, from which the bytes `start` have been read already. The options tell the
// frames' size. Throws Failure.
std::unique_ptr<FrameSource> OpenRawSource(int file, const std::string& start,
                                           const SourceOptions& options);

}  // namespace kolm
