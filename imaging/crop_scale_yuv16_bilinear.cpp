// Bilinear crop and scale of packed frames.
#include <tmmintrin.h>

#include "imaging/crop_scale_yuv16.h"
#include "imaging/fixed_point.h"
#include "imaging/interpolate_sse2.h"
#include "imaging/vectors_sse2.h"
#include "imaging/yuv16_sample.h"
#include "imaging/yuv16_window.h"
#include "module/memory.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

void StorePair(uint8_t* dst, const Yuv16Sample& a, const Yuv16Sample& b) {
  dst[0] = static_cast<uint8_t>(a.y);
  dst[1] = static_cast<uint8_t>((a.u + b.u) >> 1);
  dst[2] = static_cast<uint8_t>(b.y);
  dst[3] = static_cast<uint8_t>((a.v + b.v) >> 1);
}

Yuv16Sample InterpolateSample(const Yuv16Sample& from, const Yuv16Sample& to, int32_t fraction) {
  return {Interpolate(from.y, to.y, fraction), Interpolate(from.u, to.u, fraction),
          Interpolate(from.v, to.v, fraction)};
}

Yuv16Sample Average(const Yuv16Sample& a, const Yuv16Sample& b) {
  return {(a.y + b.y) >> 1, (a.u + b.u) >> 1, (a.v + b.v) >> 1};
}

Yuv16Sample InterpolateAt(const uint8_t* top, const uint8_t* bottom, int32_t x, int32_t fractionY) {
  const int32_t fractionX = x & 0xFFFF;
  const int32_t left = x >> 16;
  const int32_t right = NextSample(x);
  const Yuv16Sample t =
      InterpolateSample(SampleYuv16(top, left), SampleYuv16(top, right), fractionX);
  const Yuv16Sample b =
      InterpolateSample(SampleYuv16(bottom, left), SampleYuv16(bottom, right), fractionX);
  return InterpolateSample(t, b, fractionY);
}

void InterpolatePairs_Plain(const uint8_t* top, const uint8_t* bottom, uint8_t* dst, int32_t pairs,
                            int32_t x, int32_t stepX, int32_t fractionY) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = InterpolateAt(top, bottom, x, fractionY);
    x = Advance(x, stepX);
    StorePair(dst + 4 * ptrdiff_t{pair}, a, InterpolateAt(top, bottom, x, fractionY));
    x = Advance(x, stepX);
  }
}

// The right edge of an interpolated row: no right neighbour is left to weight.
void AverageDownPairs(const uint8_t* top, const uint8_t* bottom, uint8_t* dst, int32_t pairs,
                      int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = Average(SampleYuv16(top, x >> 16), SampleYuv16(bottom, x >> 16));
    x = Advance(x, stepX);
    const Yuv16Sample b = Average(SampleYuv16(top, x >> 16), SampleYuv16(bottom, x >> 16));
    StorePair(dst + 4 * ptrdiff_t{pair}, a, b);
    x = Advance(x, stepX);
  }
}

// A bottom row: no lower neighbour is left to weight.
void AverageAcrossPairs(const uint8_t* row, uint8_t* dst, int32_t pairs, int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = Average(SampleYuv16(row, x >> 16), SampleYuv16(row, NextSample(x)));
    x = Advance(x, stepX);
    const Yuv16Sample b = Average(SampleYuv16(row, x >> 16), SampleYuv16(row, NextSample(x)));
    StorePair(dst + 4 * ptrdiff_t{pair}, a, b);
    x = Advance(x, stepX);
  }
}

void NearestPairs(const uint8_t* row, uint8_t* dst, int32_t pairs, int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = SampleYuv16(row, x >> 16);
    x = Advance(x, stepX);
    StorePair(dst + 4 * ptrdiff_t{pair}, a, SampleYuv16(row, x >> 16));
    x = Advance(x, stepX);
  }
}

// How many pairs stand before the last two of `columns` columns.
int32_t PairsBeforeEdge(int32_t columns) { return columns > 2 ? (columns - 3) / 2 + 1 : 0; }

int32_t Smaller(int32_t a, int32_t b) { return a < b ? a : b; }

// The interpolated region: whole rows of `pairs` pairs, each with both neighbours in the source.
struct Region {
  const uint8_t* src;
  ptrdiff_t srcStride;
  int32_t srcWidth;
  uint8_t* dst;
  ptrdiff_t dstStride;
  int32_t pairs;
  int32_t rows;
  int32_t x, stepX;
  int32_t y, stepY;
};

void InterpolateRegion_Plain(const Region& r) {
  uint8_t* dst = r.dst;
  int32_t y = r.y;
  for (int32_t row = 0; row < r.rows; ++row) {
    InterpolatePairs_Plain(r.src + (y >> 16) * r.srcStride, r.src + NextSample(y) * r.srcStride,
                           dst, r.pairs, r.x, r.stepX, y & 0xFFFF);
    dst += r.dstStride;
    y = Advance(y, r.stepY);
  }
}

// The vector form interpolates source rows across and keeps the last two, since consecutive
// destination rows mostly lie between the same ones; then it interpolates down between them. It
// works in tiles of columns whose rows the stack can hold, in groups of 4 pairs (8 pixels).
constexpr int32_t kGroupPairs = 4;
constexpr int32_t kGroupPixels = 8;
constexpr int32_t kTileGroups = 24;
constexpr int32_t kTileShuffles = 8;

// The three vectors of a group: its 8 luma, and U and V in turn of the 4 pairs' first and second
// pixels.
enum { kLuma, kFirstChroma, kSecondChroma, kVectors };

// A group of one source row, interpolated across.
struct GroupRow {
  alignas(16) uint16_t lanes[kVectors][kGroupPixels];
};

// Fetches a group's left and right neighbours from its window of source pixels, or those of half a
// group where 8 pixels reach too far for one.
struct Shuffle {
  __m128i left[kVectors];
  __m128i right[kVectors];
};

struct Group {
  uint16_t starts[2];    // of the windows, in source pixel pairs
  uint16_t shuffles[2];  // indices
};

struct Tile {
  Shuffle shuffles[kTileShuffles];
  uint32_t keys[kTileShuffles];  // what tells one shuffle from another
  Group groups[kTileGroups];
  int32_t shuffleCount;
  int32_t groupCount;
  int32_t x, stepX;  // of the tile's first pixel
};

void WriteShuffle(Shuffle* shuffle, int32_t start, int32_t firstPixel, int32_t pixels, int32_t x,
                  int32_t stepX) {
  constexpr uint8_t kZero = 0x80;
  uint8_t bytes[2][kVectors][16];
  for (auto& side : bytes) {
    for (auto& vector : side) {
      for (uint8_t& byte : vector) byte = kZero;
    }
  }
  for (int32_t pixel = firstPixel; pixel < firstPixel + pixels; ++pixel) {
    for (int32_t side = 0; side < 2; ++side) {
      const int32_t column = (x >> 16) + side - 2 * start;
      const int32_t chroma = (column & ~1) * 2;
      uint8_t* lanes = bytes[side][pixel % 2 == 0 ? kFirstChroma : kSecondChroma] + pixel / 2 * 4;
      bytes[side][kLuma][pixel * 2] = static_cast<uint8_t>(column * 2);
      lanes[0] = static_cast<uint8_t>(chroma + 1);
      lanes[2] = static_cast<uint8_t>(chroma + 3);
    }
    x = Advance(x, stepX);
  }
  KolmCopy(shuffle, bytes, sizeof bytes);
}

// Plans a group's window number `window` of `windows`, whose first pixel lies at x; false if the
// tile has no room for another shuffle.
bool PlanWindow(Tile* tile, Group* group, int32_t window, int32_t windows, int32_t x,
                int32_t srcWidth) {
  const int32_t pixels = kGroupPixels / windows;
  const uint16_t start = Yuv16WindowStart(x >> 16, srcWidth);
  uint32_t key = static_cast<uint32_t>(window);
  for (int32_t pixel = 0; pixel < pixels; ++pixel) {
    const int32_t column = (Advance(x, tile->stepX, pixel) >> 16) - 2 * start;
    key = key * kYuv16WindowPixels + static_cast<uint32_t>(column);
  }
  int32_t shuffle = 0;
  while (shuffle < tile->shuffleCount && tile->keys[shuffle] != key) ++shuffle;
  if (shuffle == kTileShuffles) return false;
  if (shuffle == tile->shuffleCount) {
    WriteShuffle(&tile->shuffles[shuffle], start, window * pixels, pixels, x, tile->stepX);
    tile->keys[shuffle] = key;
    ++tile->shuffleCount;
  }
  group->starts[window] = start;
  group->shuffles[window] = static_cast<uint16_t>(shuffle);
  return true;
}

// Plans as many groups from x on as the tile holds, at most `most`, with 0 to 2 windows each.
void PlanTile(Tile* tile, int32_t x, int32_t stepX, int32_t most, int32_t windows,
              int32_t srcWidth) {
  tile->shuffleCount = 0;
  tile->groupCount = 0;
  tile->x = x;
  tile->stepX = stepX;
  for (; tile->groupCount < most && tile->groupCount < kTileGroups; ++tile->groupCount) {
    Group* group = &tile->groups[tile->groupCount];
    for (int32_t window = 0; window < windows; ++window) {
      const int32_t windowX = Advance(x, stepX, window * kGroupPixels / windows);
      if (!PlanWindow(tile, group, window, windows, windowX, srcWidth)) return;
    }
    x = Advance(x, stepX, kGroupPixels);
  }
}

using InterpolateAcross = void (*)(const Tile& tile, const uint8_t* row, GroupRow* rows);

void InterpolateAcross_Plain(const Tile& tile, const uint8_t* row, GroupRow* rows) {
  int32_t x = tile.x;
  for (int32_t group = 0; group < tile.groupCount; ++group) {
    for (int32_t pixel = 0; pixel < kGroupPixels; ++pixel) {
      const Yuv16Sample sample =
          InterpolateSample(SampleYuv16(row, x >> 16), SampleYuv16(row, NextSample(x)), x & 0xFFFF);
      uint16_t* chroma =
          rows[group].lanes[pixel % 2 == 0 ? kFirstChroma : kSecondChroma] + pixel / 2 * 2;
      rows[group].lanes[kLuma][pixel] = static_cast<uint16_t>(sample.y);
      chroma[0] = static_cast<uint16_t>(sample.u);
      chroma[1] = static_cast<uint16_t>(sample.v);
      x = Advance(x, tile.stepX);
    }
  }
}

template <int windows>
__attribute__((target("ssse3"))) void InterpolateAcross_SSSE3(const Tile& tile, const uint8_t* row,
                                                              GroupRow* rows) {
  alignas(16) uint16_t first[kVectors][kGroupPixels];
  for (int32_t pixel = 0; pixel < kGroupPixels; ++pixel) {
    // Chroma lanes stand in pairs, U and V of pixels 0, 2, 4, 6 and of 1, 3, 5, 7.
    const int32_t even = pixel / 2 * 2;
    first[kLuma][pixel] = static_cast<uint16_t>(Advance(tile.x, tile.stepX, pixel));
    first[kFirstChroma][pixel] = static_cast<uint16_t>(Advance(tile.x, tile.stepX, even));
    first[kSecondChroma][pixel] = static_cast<uint16_t>(Advance(tile.x, tile.stepX, even + 1));
  }
  __m128i fractions[kVectors];
  for (int32_t i = 0; i < kVectors; ++i) fractions[i] = LoadVector_SSE2(first[i]);
  const __m128i groupStep =
      _mm_set1_epi16(static_cast<int16_t>(Advance(0, tile.stepX, kGroupPixels)));
  for (int32_t group = 0; group < tile.groupCount; ++group) {
    const Group& plan = tile.groups[group];
    const __m128i pixels = LoadWindow_SSE2(row, plan.starts[0]);
    const Shuffle& shuffle = tile.shuffles[plan.shuffles[0]];
    __m128i left[kVectors];
    __m128i right[kVectors];
    for (int32_t i = 0; i < kVectors; ++i) {
      left[i] = _mm_shuffle_epi8(pixels, shuffle.left[i]);
      right[i] = _mm_shuffle_epi8(pixels, shuffle.right[i]);
    }
    if constexpr (windows == 2) {
      const __m128i pixels2 = LoadWindow_SSE2(row, plan.starts[1]);
      const Shuffle& shuffle2 = tile.shuffles[plan.shuffles[1]];
      for (int32_t i = 0; i < kVectors; ++i) {
        left[i] = _mm_or_si128(left[i], _mm_shuffle_epi8(pixels2, shuffle2.left[i]));
        right[i] = _mm_or_si128(right[i], _mm_shuffle_epi8(pixels2, shuffle2.right[i]));
      }
    }
    for (int32_t i = 0; i < kVectors; ++i) {
      StoreVector_SSE2(rows[group].lanes[i], Interpolate_SSE2(left[i], right[i], fractions[i]));
      fractions[i] = _mm_add_epi16(fractions[i], groupStep);
    }
  }
}

void InterpolateDown_SSE2(const GroupRow* top, const GroupRow* bottom, int32_t fractionY,
                          uint8_t* dst, int32_t groups) {
  const __m128i fraction = _mm_set1_epi16(static_cast<int16_t>(fractionY));
  for (int32_t group = 0; group < groups; ++group) {
    __m128i values[kVectors];
    for (int32_t i = 0; i < kVectors; ++i) {
      values[i] = Interpolate_SSE2(LoadVector_SSE2(top[group].lanes[i]),
                                   LoadVector_SSE2(bottom[group].lanes[i]), fraction);
    }
    const __m128i sum = _mm_add_epi16(values[kFirstChroma], values[kSecondChroma]);
    const __m128i chroma = _mm_slli_epi16(_mm_srli_epi16(sum, 1), 8);
    StoreVector_SSE2(dst, _mm_or_si128(values[kLuma], chroma));
    dst += sizeof chroma;
  }
}

void InterpolateTile_SSE2(const Region& r, const Tile& tile, InterpolateAcross across,
                          uint8_t* dst) {
  GroupRow rows[2][kTileGroups];
  int32_t held[2] = {-1, -1};  // which source rows; even ones stand first
  int32_t y = r.y;
  for (int32_t row = 0; row < r.rows; ++row) {
    const int32_t top = y >> 16;
    for (int32_t sourceRow = top; sourceRow <= top + 1; ++sourceRow) {
      if (held[sourceRow & 1] == sourceRow) continue;
      across(tile, r.src + sourceRow * r.srcStride, rows[sourceRow & 1]);
      held[sourceRow & 1] = sourceRow;
    }
    InterpolateDown_SSE2(rows[top & 1], rows[(top + 1) & 1], y & 0xFFFF, dst, tile.groupCount);
    dst += r.dstStride;
    y = Advance(y, r.stepY);
  }
}

// For at least 4 pairs.
void InterpolateRegion_SSE2(const Region& r) {
  // How far the right neighbours of 8 or of 4 pixels may lie behind the first pixel's pair.
  const bool shuffles = AvailableInstructionSet() >= InstructionSet::SSSE3 && r.srcWidth % 2 == 0 &&
                        r.srcWidth >= kYuv16WindowPixels && r.stepX > 0;
  int32_t windows = 0;
  InterpolateAcross across = InterpolateAcross_Plain;
  if (shuffles && r.stepX * int64_t{7} <= 5 << 16) {
    windows = 1;
    across = InterpolateAcross_SSSE3<1>;
  } else if (shuffles && r.stepX * int64_t{3} <= 5 << 16) {
    windows = 2;
    across = InterpolateAcross_SSSE3<2>;
  }
  Tile tile;
  for (int32_t pair = 0; pair < r.pairs; pair += tile.groupCount * kGroupPairs) {
    // A last tile of part of a group starts earlier and writes some pairs again.
    if (pair > r.pairs - kGroupPairs) pair = r.pairs - kGroupPairs;
    PlanTile(&tile, Advance(r.x, r.stepX, 2 * pair), r.stepX, (r.pairs - pair) / kGroupPairs,
             windows, r.srcWidth);
    InterpolateTile_SSE2(r, tile, across, r.dst + ptrdiff_t{pair} * 4);
  }
}

}  // namespace

void CropScaleYUV16Bilinear(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                            int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                            int32_t cropWidth, int32_t cropHeight) {
  if (dstWidth <= 0 || dstHeight <= 0) return;
  const int32_t stepX = FixedPoint(cropWidth) / dstWidth;
  const int32_t stepY = FixedPoint(cropHeight) / dstHeight;
  if (stepX <= 0 || stepY <= 0) return;

  // Columns and rows whose right and lower neighbours lie inside the source.
  const int32_t innerCols =
      Smaller((Advance(FixedPoint(srcWidth - cropX), -0x10000) / stepX) & ~1, dstWidth);
  const int32_t innerRows =
      Smaller(Advance(FixedPoint(srcHeight - cropY), -0x10000) / stepY - 1, dstHeight);
  const int32_t pairs = (dstWidth - 1) / 2 + 1;
  const ptrdiff_t srcStride = ptrdiff_t{srcWidth} * 2;
  const ptrdiff_t dstStride = ptrdiff_t{pairs} * 4;
  const int32_t x = FixedPoint(cropX);
  int32_t y = FixedPoint(cropY);

  const int32_t interpolatedPairs = PairsBeforeEdge(innerCols);
  const Region region = {
      .src = src,
      .srcStride = srcStride,
      .srcWidth = srcWidth,
      .dst = dst,
      .dstStride = dstStride,
      .pairs = interpolatedPairs,
      .rows = innerRows,
      .x = x,
      .stepX = stepX,
      .y = y,
      .stepY = stepY,
  };
  if (AvailableInstructionSet() == InstructionSet::Plain || interpolatedPairs < kGroupPairs) {
    InterpolateRegion_Plain(region);
  } else {
    InterpolateRegion_SSE2(region);
  }

  const int32_t xEdge = Advance(x, stepX, 2 * interpolatedPairs);
  const int32_t averagedPairs = PairsBeforeEdge(dstWidth);
  const int32_t xLast = Advance(x, stepX, 2 * averagedPairs);
  for (int32_t row = 0; row < dstHeight; ++row) {
    const uint8_t* top = src + (y >> 16) * srcStride;
    if (row < innerRows) {
      AverageDownPairs(top, src + NextSample(y) * srcStride, dst + ptrdiff_t{interpolatedPairs} * 4,
                       pairs - interpolatedPairs, xEdge, stepX);
    } else {
      AverageAcrossPairs(top, dst, averagedPairs, x, stepX);
      NearestPairs(top, dst + ptrdiff_t{averagedPairs} * 4, pairs - averagedPairs, xLast, stepX);
    }
    dst += dstStride;
    y = Advance(y, stepY);
  }
}

}  // namespace kolm
