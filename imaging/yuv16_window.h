// The 16 source bytes that one byte shuffle can pick from.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "imaging/vectors_sse2.h"

namespace kolm {

constexpr int32_t kYuv16WindowPixels = 8;

// The first pixel pair of the window that serves the pixels from `column` on. Near the right edge
// it lies further left, so that no window leaves the row.
inline uint16_t Yuv16WindowStart(int32_t column, int32_t srcWidth) {
  const int32_t first = column / 2;
  const int32_t last = (srcWidth - kYuv16WindowPixels) / 2;
  return static_cast<uint16_t>(first < last ? first : last);
}

inline __m128i LoadWindow_SSE2(const uint8_t* row, uint16_t start) {
  return LoadVector_SSE2(row + size_t{start} * 4);
}

}  // namespace kolm
