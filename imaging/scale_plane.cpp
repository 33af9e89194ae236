// Bilinear scaling of an 8-bit plane.
#include "imaging/scale_plane.h"

#include <stddef.h>
#include <tmmintrin.h>

#include "imaging/fixed_point.h"
#include "imaging/interpolate_sse2.h"
#include "imaging/vectors_sse2.h"
#include "module/memory.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

// What all rows of one call share.
struct PlaneScaling {
  const uint8_t* src;
  int32_t srcWidth;
  uint8_t* dst;
  int32_t dstWidth;
  int32_t stepX, stepY;
};

// Interpolates the columns from `first` to before `end` of the rows from `firstRow` to before
// `endRow`.
void InterpolatePart_Plain(const PlaneScaling& s, int32_t first, int32_t end, int32_t firstRow,
                           int32_t endRow) {
  for (int32_t row = firstRow; row < endRow; ++row) {
    const int32_t y = Advance(0, s.stepY, row);
    const uint8_t* top = s.src + ptrdiff_t{y >> 16} * s.srcWidth;
    const uint8_t* bottom = s.src + ptrdiff_t{NextSample(y)} * s.srcWidth;
    uint8_t* dst = s.dst + ptrdiff_t{row} * s.dstWidth;
    int32_t x = Advance(0, s.stepX, first);
    for (int32_t column = first; column < end; ++column) {
      const int32_t left = x >> 16;
      const int32_t right = NextSample(x);
      const int32_t t = Interpolate(top[left], top[right], x & 0xFFFF);
      const int32_t b = Interpolate(bottom[left], bottom[right], x & 0xFFFF);
      dst[column] = static_cast<uint8_t>(Interpolate(t, b, y & 0xFFFF));
      x = Advance(x, s.stepX);
    }
  }
}

// The vector form interpolates source rows across and keeps the last two, since consecutive
// destination rows mostly lie between the same ones; then it interpolates down between them. It
// works in tiles of columns whose rows the stack can hold, in groups of 8, each fetched from a
// window of 16 source bytes.
constexpr int32_t kWindowBytes = 16;
constexpr int32_t kGroup = 8;
constexpr int32_t kTileGroups = 32;
constexpr int32_t kTileShuffles = 16;

struct Shuffle {
  __m128i left, right;
};

struct Window {
  uint16_t start;
  uint16_t shuffle;  // index
};

struct Tile {
  Shuffle shuffles[kTileShuffles];
  uint32_t keys[kTileShuffles];  // what tells one shuffle from another
  Window windows[kTileGroups];
  alignas(16) uint16_t fractions[kTileGroups][kGroup];
  int32_t shuffleCount;
  int32_t groups;
};

struct alignas(16) GroupRow {
  uint16_t lanes[kGroup];
};

void WriteShuffle(Shuffle* shuffle, int32_t start, int32_t x, int32_t stepX) {
  constexpr uint8_t kZero = 0x80;
  uint8_t bytes[2][kGroup][2];
  for (int32_t i = 0; i < kGroup; ++i) {
    for (int32_t side = 0; side < 2; ++side) {
      bytes[side][i][0] = static_cast<uint8_t>((x >> 16) + side - start);
      bytes[side][i][1] = kZero;
    }
    x = Advance(x, stepX);
  }
  KolmCopy(shuffle, bytes, sizeof bytes);
}

// Plans the group from x on; false if the tile has no room for another shuffle.
bool PlanGroup(Tile* tile, int32_t x, int32_t stepX, int32_t srcWidth) {
  const int32_t column = x >> 16;
  const int32_t start = column < srcWidth - kWindowBytes ? column : srcWidth - kWindowBytes;
  uint32_t key = 0;
  for (int32_t i = 0; i < kGroup; ++i) {
    const int32_t position = Advance(x, stepX, i);
    key = key * kWindowBytes + static_cast<uint32_t>((position >> 16) - start);
    tile->fractions[tile->groups][i] = static_cast<uint16_t>(position);
  }
  int32_t shuffle = 0;
  while (shuffle < tile->shuffleCount && tile->keys[shuffle] != key) ++shuffle;
  if (shuffle == kTileShuffles) return false;
  if (shuffle == tile->shuffleCount) {
    WriteShuffle(&tile->shuffles[shuffle], start, x, stepX);
    tile->keys[shuffle] = key;
    ++tile->shuffleCount;
  }
  tile->windows[tile->groups] = {static_cast<uint16_t>(start), static_cast<uint16_t>(shuffle)};
  return true;
}

__attribute__((target("ssse3"))) void InterpolateAcross_SSSE3(const Tile& tile, const uint8_t* row,
                                                              GroupRow* groups) {
  for (int32_t group = 0; group < tile.groups; ++group) {
    const Window& window = tile.windows[group];
    const Shuffle& shuffle = tile.shuffles[window.shuffle];
    const __m128i bytes = LoadVector_SSE2(row + window.start);
    const __m128i fractions = LoadVector_SSE2(tile.fractions[group]);
    const __m128i values = Interpolate_SSE2(_mm_shuffle_epi8(bytes, shuffle.left),
                                            _mm_shuffle_epi8(bytes, shuffle.right), fractions);
    StoreVector_SSE2(groups[group].lanes, values);
  }
}

void InterpolateDown_SSE2(const GroupRow* top, const GroupRow* bottom, int32_t fractionY,
                          uint8_t* dst, int32_t groups) {
  const __m128i fraction = _mm_set1_epi16(static_cast<int16_t>(fractionY));
  for (int32_t group = 0; group < groups; ++group) {
    const __m128i values = Interpolate_SSE2(LoadVector_SSE2(top[group].lanes),
                                            LoadVector_SSE2(bottom[group].lanes), fraction);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(values, values));
    dst += kGroup;
  }
}

void InterpolateTile_SSSE3(const PlaneScaling& s, const Tile& tile, int32_t firstColumn,
                           int32_t rows) {
  GroupRow groups[2][kTileGroups];
  int32_t held[2] = {-1, -1};  // which source rows; even ones stand first
  uint8_t* dst = s.dst + firstColumn;
  int32_t y = 0;
  for (int32_t row = 0; row < rows; ++row) {
    const int32_t top = y >> 16;
    for (int32_t sourceRow = top; sourceRow <= top + 1; ++sourceRow) {
      if (held[sourceRow & 1] == sourceRow) continue;
      InterpolateAcross_SSSE3(tile, s.src + ptrdiff_t{sourceRow} * s.srcWidth,
                              groups[sourceRow & 1]);
      held[sourceRow & 1] = sourceRow;
    }
    InterpolateDown_SSE2(groups[top & 1], groups[(top + 1) & 1], y & 0xFFFF, dst, tile.groups);
    dst += s.dstWidth;
    y = Advance(y, s.stepY);
  }
}

// Columns and rows from 0 on whose neighbours all lie in the source; whole groups of columns.
void InterpolatePart_SSSE3(const PlaneScaling& s, int32_t columns, int32_t rows) {
  Tile tile;
  for (int32_t first = 0; first < columns; first += tile.groups * kGroup) {
    tile.shuffleCount = 0;
    tile.groups = 0;
    while (
        tile.groups < kTileGroups && first + tile.groups * kGroup < columns &&
        PlanGroup(&tile, Advance(0, s.stepX, first + tile.groups * kGroup), s.stepX, s.srcWidth)) {
      ++tile.groups;
    }
    InterpolateTile_SSSE3(s, tile, first, rows);
  }
}

// How many of `count` positions at `step` have a next sample inside `size` samples.
int32_t PositionsInside(int32_t size, int32_t step, int32_t count) {
  if (size < 2) return 0;
  const int32_t inside = (FixedPoint(size - 1) - 1) / step + 1;
  return inside < count ? inside : count;
}

}  // namespace

void ScalePlaneBilinear(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                        int32_t dstWidth, int32_t dstHeight) {
  if (dstWidth <= 0 || dstHeight <= 0) return;
  const PlaneScaling s = {
      .src = src,
      .srcWidth = srcWidth,
      .dst = dst,
      .dstWidth = dstWidth,
      .stepX = FixedPoint(srcWidth) / dstWidth,
      .stepY = FixedPoint(srcHeight) / dstHeight,
  };
  // 8 columns and their right neighbours must fit into a window.
  int32_t columns = 0;
  int32_t rows = 0;
  if (AvailableInstructionSet() >= InstructionSet::SSSE3 && srcWidth >= kWindowBytes &&
      srcWidth <= 32767 && s.stepX > 0 && s.stepX <= 2 << 16 && s.stepY > 0) {
    columns = PositionsInside(srcWidth, s.stepX, dstWidth - 1) / kGroup * kGroup;
    rows = PositionsInside(srcHeight, s.stepY, dstHeight - 1);
    InterpolatePart_SSSE3(s, columns, rows);
  }
  InterpolatePart_Plain(s, columns, dstWidth - 1, 0, rows);
  InterpolatePart_Plain(s, 0, dstWidth - 1, rows, dstHeight - 1);

  // The last column and the last row repeat the nearest sample.
  int32_t y = 0;
  const int32_t lastColumn = Advance(0, s.stepX, dstWidth - 1) >> 16;
  for (int32_t row = 0; row < dstHeight - 1; ++row) {
    dst[dstWidth - 1] = src[ptrdiff_t{y >> 16} * srcWidth + lastColumn];
    dst += dstWidth;
    y = Advance(y, s.stepY);
  }
  const uint8_t* last = src + ptrdiff_t{y >> 16} * srcWidth;
  int32_t x = 0;
  for (int32_t column = 0; column < dstWidth; ++column) {
    dst[column] = last[x >> 16];
    x = Advance(x, s.stepX);
  }
}

}  // namespace kolm
