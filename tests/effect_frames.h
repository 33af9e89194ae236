// Frames for the effect tests.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/random_case.h"

namespace kolm {

using Bytes = std::vector<uint8_t>;

// Noise that is the same in every run.
inline Bytes NoiseFrame(uint32_t width, uint32_t height) {
  Random random(width, height);
  Bytes frame(size_t{width} * height * 2);
  for (uint8_t& byte : frame) byte = static_cast<uint8_t>(random.Bits());
  return frame;
}

inline Bytes FlatFrame(uint32_t width, uint32_t height, uint8_t y, uint8_t u, uint8_t v) {
  Bytes frame(size_t{width} * height * 2);
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = i % 2 == 0 ? y : i % 4 == 1 ? u : v;
  return frame;
}

// Reads and writes a frame by row and column.
struct FrameView {
  Bytes& bytes;
  uint32_t width;

  uint8_t& Luma(uint32_t row, uint32_t column) const {
    return bytes.at((size_t{row} * width + column) * 2);
  }
  uint8_t& Chroma(uint32_t row, uint32_t column) const {
    return bytes.at((size_t{row} * width + column) * 2 + 1);
  }
};

}  // namespace kolm
