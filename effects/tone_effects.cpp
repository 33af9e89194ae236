// Grayscale, sepia, negative and posterize.
#include "effects/tone_effects.h"

#include "effects/frame.h"

namespace kolm {
namespace {

// Pixel pairs of a frame in 32-bit arithmetic: an odd pixel count rounds up to a whole pair.
size_t PixelPairs(uint32_t width, uint32_t height) {
  const uint32_t pixels = width * height;
  return pixels == 0 ? 0 : size_t{(pixels - 1) / 2} + 1;
}

constexpr uint8_t kLowestLevel = 16;
constexpr uint8_t kHighestLuma = 235;
constexpr uint8_t kHighestChroma = 240;

// The inner levels reach outside the video range (13 at 20 levels): only the ends are fitted to it.
uint8_t PosterizedByte(uint32_t value, uint32_t levels, uint8_t highest) {
  const uint32_t level = value * levels / 255;
  if (level == 0) return kLowestLevel;
  if (level + 1 >= levels) return highest;
  return static_cast<uint8_t>(level * 255 / (levels - 1));
}

void PosterizePairs_Plain(const uint8_t* source, uint8_t* destination, size_t pairs,
                          uint32_t levels) {
  uint8_t luma[256];
  uint8_t chroma[256];
  for (uint32_t value = 0; value < 256; ++value) {
    luma[value] = PosterizedByte(value, levels, kHighestLuma);
    chroma[value] = PosterizedByte(value, levels, kHighestChroma);
  }
  for (size_t i = 0; i < pairs * 4; i += 2) {
    destination[i] = luma[source[i]];
    destination[i + 1] = chroma[source[i + 1]];
  }
}

}  // namespace

void Grayscale(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
               uint32_t /*parameter*/) {
  const size_t pixels = width * height;
  for (size_t i = 0; i < pixels; ++i) {
    destination[2 * i] = source[2 * i];
    destination[2 * i + 1] = 128;
  }
}

void Sepia(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
           uint32_t /*parameter*/) {
  const size_t pairs = PixelPairs(width, height);
  for (size_t i = 0; i < pairs; ++i) {
    destination[4 * i] = source[4 * i];
    destination[4 * i + 1] = 96;
    destination[4 * i + 2] = source[4 * i + 2];
    destination[4 * i + 3] = 150;
  }
}

void Negative(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
              uint32_t /*parameter*/) {
  const size_t pairs = PixelPairs(width, height);
  for (size_t i = 0; i < pairs * 4; i += 2) {
    destination[i] = static_cast<uint8_t>(255 - source[i]);
    destination[i + 1] = static_cast<uint8_t>(256 - source[i + 1]);
  }
}

void Posterize(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
               uint32_t parameter) {
  if (parameter == 0 || parameter > 11) {
    CopyFrame(source, destination, width, height);
    return;
  }
  PosterizePairs_Plain(source, destination, PixelPairs(width, height), 2 * (11 - parameter));
}

}  // namespace kolm
