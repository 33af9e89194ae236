// The 16 source bytes that one byte shuffle can pick from.
#pragma once

#include <emmintrin.h>
#include <stddef.h>
#include <stdint.h>

namespace kolm {

constexpr int32_t kYuv16WindowPixels = 8;

struct Yuv16Window {
  uint16_t start;    // in source pixel pairs from the start of the row
  uint16_t shuffle;  // index of the shuffle that goes with it
};

// The first pair of the window that serves the pixels from `column` on. Near the right edge it lies
// further left, so that no window leaves the row.
inline int32_t Yuv16WindowStart(int32_t column, int32_t srcWidth) {
  const int32_t first = column / 2;
  const int32_t last = (srcWidth - kYuv16WindowPixels) / 2;
  return first < last ? first : last;
}

inline __m128i LoadWindow_SSE2(const uint8_t* row, const Yuv16Window& window) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + size_t{window.start} * 4));
}

}  // namespace kolm
