// Pixelate, the emboss and relief variants, and sketch. They measure luma alone.
#include "effects/neighbourhood_effects.h"

#include "effects/frame.h"

namespace kolm {
namespace {

int32_t Clamp(int32_t value, int32_t lowest, int32_t highest) {
  return value < lowest ? lowest : value > highest ? highest : value;
}

uint8_t EmbossedLuma(int32_t difference) {
  return static_cast<uint8_t>(Clamp(difference + 128, 16, 235));
}

uint8_t ReliefLuma(int32_t difference) {
  return static_cast<uint8_t>(Clamp(difference, -127, 128));
}

using LumaOfDifference = uint8_t (*)(int32_t difference);

// Luma of the source row, chroma 128.
void GreyRow(const uint8_t* row, uint8_t* destination, uint32_t width) {
  for (uint32_t x = 0; x < width; ++x) {
    destination[2 * size_t{x}] = row[2 * size_t{x}];
    destination[2 * size_t{x} + 1] = 128;
  }
}

template <LumaOfDifference luma>
void DifferenceRow_Plain(const uint8_t* row, const uint8_t* above, uint8_t* destination,
                         uint32_t width) {
  for (size_t x = 1; x + 1 < width; ++x) {
    destination[2 * x] = luma(row[2 * x] - above[2 * x - 2]);
  }
}

template <LumaOfDifference luma>
void GreyDifference(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* row = source + FrameBytes(width, y);
    uint8_t* line = destination + FrameBytes(width, y);
    GreyRow(row, line, width);
    if (y == 0 || y + 1 == height) continue;
    DifferenceRow_Plain<luma>(row, row - RowBytes(width), line, width);
  }
}

// The result lands one row above the row that was measured.
template <LumaOfDifference luma>
void ColourDifference(const uint8_t* source, uint8_t* destination, uint32_t width,
                      uint32_t height) {
  CopyFrame(source, destination, width, height);
  for (uint32_t y = 1; y + 1 < height; ++y) {
    const uint8_t* row = source + FrameBytes(width, y);
    const uint8_t* above = row - RowBytes(width);
    DifferenceRow_Plain<luma>(row, above, destination + FrameBytes(width, y - 1), width);
  }
}

// The largest of five of the eight compass gradients; those towards the right are left out, so that
// edges show with a bias.
void SketchRow_Plain(const uint8_t* above, const uint8_t* row, const uint8_t* below,
                     uint8_t* destination, uint32_t width) {
  for (size_t x = 1; x + 1 < width; ++x) {
    const size_t left = 2 * x - 2;
    const size_t middle = 2 * x;
    const size_t right = 2 * x + 2;
    const int32_t vertical = above[left] + 2 * above[middle] + above[right] - below[left] -
                             2 * below[middle] - below[right];
    const int32_t horizontal = above[left] + 2 * row[left] + below[left] - above[right] -
                               2 * row[right] - below[right];
    const int32_t across = row[left] - row[right];
    const int32_t down = above[middle] - below[middle];
    const int32_t falling = 2 * (above[left] - below[right]) + across + down;
    const int32_t rising = 2 * (below[left] - above[right]) + across - down;
    int32_t largest = vertical < 0 ? -vertical : vertical;
    if (horizontal > largest) largest = horizontal;
    if (falling > largest) largest = falling;
    if (rising > largest) largest = rising;
    destination[middle] = static_cast<uint8_t>(251 - Clamp(largest, 16, 235));
  }
}

// Fills `pixels` pixels with a pixel pair of one luma.
void FillPixels(uint8_t* destination, size_t pixels, uint8_t y, uint8_t u, uint8_t v) {
  for (size_t i = 0; i < pixels; ++i) {
    destination[2 * i] = y;
    destination[2 * i + 1] = i % 2 == 0 ? u : v;
  }
}

}  // namespace

void Pixelate(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
              uint32_t parameter) {
  const uint64_t block = uint64_t{parameter} * 4;
  if (block == 0 || block > width || block > height) {
    CopyFrame(source, destination, width, height);
    return;
  }
  // The last block of a row and the last row of blocks take what the division leaves over.
  const size_t rowBytes = RowBytes(width);
  const uint64_t across = width / block;
  const uint64_t down = height / block;
  for (uint64_t by = 0; by < down; ++by) {
    const uint8_t* row = source + by * block * rowBytes;
    uint8_t* line = destination + by * block * rowBytes;
    for (uint64_t bx = 0; bx < across; ++bx) {
      const uint64_t x = bx * block;
      const uint8_t* pair = row + 2 * x;
      const uint64_t pixels = bx + 1 == across ? width - x : block;
      FillPixels(line + 2 * x, pixels, pair[0], pair[1], pair[3]);
    }
    const uint64_t lines = by + 1 == down ? height - by * block : block;
    for (uint64_t i = 1; i < lines; ++i) KolmCopy(line + i * rowBytes, line, rowBytes);
  }
}

void EmbossGrey(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                uint32_t /*parameter*/) {
  GreyDifference<EmbossedLuma>(source, destination, width, height);
}

void EmbossColour(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                  uint32_t /*parameter*/) {
  ColourDifference<EmbossedLuma>(source, destination, width, height);
}

void EdgeReliefGrey(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                    uint32_t /*parameter*/) {
  GreyDifference<ReliefLuma>(source, destination, width, height);
}

void EdgeReliefColour(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                      uint32_t /*parameter*/) {
  ColourDifference<ReliefLuma>(source, destination, width, height);
}

void Sketch(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
            uint32_t /*parameter*/) {
  const size_t rowBytes = RowBytes(width);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* row = source + y * rowBytes;
    uint8_t* line = destination + y * rowBytes;
    PaintBlack(line, width);
    if (y == 0 || y + 1 == height) continue;
    SketchRow_Plain(row - rowBytes, row, row + rowBytes, line, width);
  }
}

}  // namespace kolm
