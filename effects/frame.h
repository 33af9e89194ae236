// Byte counts and whole-frame operations that the effects share. Counts are 64-bit: those of a
// frame that fits into memory do not overflow.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "module/memory.h"

namespace kolm {

inline size_t RowBytes(uint32_t width) { return size_t{width} * 2; }

inline size_t FrameBytes(uint32_t width, uint32_t height) { return RowBytes(width) * height; }

inline void CopyFrame(const uint8_t* source, uint8_t* destination, uint32_t width,
                      uint32_t height) {
  KolmCopy(destination, source, FrameBytes(width, height));
}

// Fills `pixels` pixels with the pixel pair (y, u, y, v), beginning with u.
inline void FillPixels(uint8_t* destination, size_t pixels, uint8_t y, uint8_t u, uint8_t v) {
  const uint64_t pair = uint64_t{y} | uint64_t{u} << 8 | uint64_t{y} << 16 | uint64_t{v} << 24;
  const uint64_t twoPairs = pair | pair << 32;
  const size_t words = pixels / 4;
  for (size_t i = 0; i < words; ++i) {
    __builtin_memcpy(destination + i * sizeof twoPairs, &twoPairs, sizeof twoPairs);
  }
  for (size_t i = words * 4; i < pixels; ++i) {
    destination[2 * i] = y;
    destination[2 * i + 1] = i % 2 == 0 ? u : v;
  }
}

inline void PaintBlack(uint8_t* destination, size_t pixels) {
  FillPixels(destination, pixels, 0, 128, 128);
}

}  // namespace kolm
