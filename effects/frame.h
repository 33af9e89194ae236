// Byte counts and whole-frame operations that the effects share. Counts are 64-bit: no frame size
// that a caller can name overflows them.
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

// Paints `pixels` pixels black: luma 0, chroma 128.
inline void PaintBlack(uint8_t* destination, size_t pixels) {
  for (size_t i = 0; i < pixels; ++i) {
    destination[2 * i] = 0;
    destination[2 * i + 1] = 128;
  }
}

}  // namespace kolm
