// A frame of two halves.
#pragma once

#include <cstddef>
#include <cstring>

#include "tools/kolm/media.h"

namespace kolm {

// The left half of the source over the result's, in whole pixel pairs.
inline void KeepLeftHalf(const AVFrame& source, AVFrame& result) {
  const auto bytes = static_cast<size_t>(source.width) / 4 * 4;
  for (int row = 0; row < source.height; ++row) {
    std::memcpy(result.data[0] + static_cast<ptrdiff_t>(row) * result.linesize[0],
                source.data[0] + static_cast<ptrdiff_t>(row) * source.linesize[0], bytes);
  }
}

}  // namespace kolm
