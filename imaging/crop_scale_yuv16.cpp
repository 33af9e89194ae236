// Nearest-sample crop and scale.
#include "imaging/crop_scale_yuv16.h"

#include <tmmintrin.h>

#include "imaging/fixed_point.h"
#include "imaging/vectors_sse2.h"
#include "imaging/yuv16_sample.h"
#include "imaging/yuv16_window.h"
#include "module/memory.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

// What all rows of one call share.
struct Sampling {
  const uint8_t* src;
  ptrdiff_t srcStride;
  uint8_t* dst;
  size_t dstStride;
  int32_t pairs;  // of a destination row
  int32_t rows;
  int32_t x, stepX;
  int32_t y, stepY;
};

void SamplePairs_Plain(const uint8_t* row, uint8_t* dst, int32_t pairs, int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = SampleYuv16(row, x >> 16);
    x = Advance(x, stepX);
    const Yuv16Sample b = SampleYuv16(row, x >> 16);
    x = Advance(x, stepX);
    dst[0] = static_cast<uint8_t>(a.y);
    dst[1] = static_cast<uint8_t>((a.u + b.u) >> 1);
    dst[2] = static_cast<uint8_t>(b.y);
    dst[3] = static_cast<uint8_t>((a.v + b.v) >> 1);
    dst += 4;
  }
}

// Calls sampleRow(source row, destination row) for each destination row whose source row differs
// from that of the row above, and copies the others.
template <typename SampleRow>
void ForEachRow(const Sampling& s, size_t firstByte, size_t bytes, SampleRow sampleRow) {
  uint8_t* dst = s.dst + firstByte;
  int32_t y = s.y;
  for (int32_t row = 0; row < s.rows; ++row) {
    if (row > 0 && y >> 16 == Advance(y, -s.stepY) >> 16) {
      KolmCopy(dst, dst - s.dstStride, bytes);
    } else {
      sampleRow(s.src + (y >> 16) * s.srcStride, dst);
    }
    dst += s.dstStride;
    y = Advance(y, s.stepY);
  }
}

void SampleRows_Plain(const Sampling& s) {
  ForEachRow(s, 0, size_t{4} * static_cast<size_t>(s.pairs),
             [&s](const uint8_t* row, uint8_t* dst) {
               SamplePairs_Plain(row, dst, s.pairs, s.x, s.stepX);
             });
}

// The vector form shuffles a group of 4 destination pairs out of 1, 2 or 4 windows of 8 source
// pixels, each window giving 4, 2 or 1 pairs. Where the windows lie and how they are shuffled is
// the same in every row, so it is planned once for as many columns as the stack should hold. A row
// takes only a few different shuffles: 8 positions at equal steps meet at most 8 patterns of whole
// columns, each beginning at an even or an odd one; near the right edge others follow.
constexpr int32_t kGroupPairs = 4;
constexpr int32_t kGroupBytes = 16;
constexpr int32_t kTileShuffles = 20;

// A pair's bytes have two candidates, its first pixel's (a) and its second pixel's (b); their floor
// mean is the result. For luma both are the same.
// A lone window is shuffled twice, for the a and for the b of its 4 pairs. Otherwise each window is
// shuffled once and they are merged into two vectors, each with the a of 2 pairs in its low half
// and their b in its high half.
template <int windows>
struct Shuffle {
  __m128i vectors[windows == 1 ? 2 : windows];
};

template <int windows>
struct Group {
  uint16_t shuffle;          // index
  uint16_t starts[windows];  // in source pixel pairs
};

template <int windows>
struct Tile {
  // A row of 2048 pixels; half of that where it is reduced so far that 4 windows are needed.
  static constexpr int32_t kGroups = windows == 4 ? 128 : 256;

  Shuffle<windows> shuffles[kTileShuffles];
  uint32_t keys[kTileShuffles];  // what tells one shuffle from another
  Group<windows> groups[kGroups];
  int32_t shuffleCount;
  int32_t groupCount;
};

// columns: of the group's 8 pixels, counted from their windows' starts.
template <int windows>
void WriteShuffle(Shuffle<windows>* shuffle, const uint8_t columns[kGroupPairs * 2]) {
  constexpr uint8_t kZero = 0x80;
  uint8_t bytes[sizeof *shuffle];
  for (uint8_t& byte : bytes) byte = kZero;
  for (int32_t pair = 0; pair < kGroupPairs; ++pair) {
    uint8_t* a = windows == 1   ? bytes + pair * 4
                 : windows == 2 ? bytes + pair / 2 * 16 + pair % 2 * 4
                                : bytes + pair * 16 + pair % 2 * 4;
    uint8_t* b = a + (windows == 1 ? 16 : 8);
    const uint8_t lumaA = static_cast<uint8_t>(2 * columns[2 * pair]);
    const uint8_t lumaB = static_cast<uint8_t>(2 * columns[2 * pair + 1]);
    a[0] = b[0] = lumaA;
    a[2] = b[2] = lumaB;
    a[1] = static_cast<uint8_t>((lumaA & ~3) + 1);
    a[3] = static_cast<uint8_t>((lumaA & ~3) + 3);
    b[1] = static_cast<uint8_t>((lumaB & ~3) + 1);
    b[3] = static_cast<uint8_t>((lumaB & ~3) + 3);
  }
  KolmCopy(shuffle, bytes, sizeof bytes);
}

// Plans the group from x on; false if the tile has no room for another shuffle.
template <int windows>
bool PlanGroup(Tile<windows>* tile, int32_t x, int32_t stepX, int32_t srcWidth) {
  constexpr int32_t kWindowPixels = kGroupPairs * 2 / windows;
  Group<windows>* group = &tile->groups[tile->groupCount];
  uint8_t columns[kGroupPairs * 2];
  uint32_t key = 0;
  for (int32_t pixel = 0; pixel < kGroupPairs * 2; ++pixel) {
    const int32_t column = x >> 16;
    uint16_t* start = &group->starts[pixel / kWindowPixels];
    if (pixel % kWindowPixels == 0) *start = Yuv16WindowStart(column, srcWidth);
    columns[pixel] = static_cast<uint8_t>(column - 2 * *start);
    key = key * kYuv16WindowPixels + columns[pixel];
    x = Advance(x, stepX);
  }
  int32_t shuffle = 0;
  while (shuffle < tile->shuffleCount && tile->keys[shuffle] != key) ++shuffle;
  if (shuffle == kTileShuffles) return false;
  if (shuffle == tile->shuffleCount) {
    WriteShuffle(&tile->shuffles[shuffle], columns);
    tile->keys[shuffle] = key;
    ++tile->shuffleCount;
  }
  group->shuffle = static_cast<uint16_t>(shuffle);
  return true;
}

// The first pair of the group that begins a multiple of 4 pairs behind firstPair: the last group of
// a row ends with the row and may overlap the one before it.
int32_t GroupStart(int32_t firstPair, int32_t group, int32_t rowPairs) {
  const int32_t start = firstPair + group * kGroupPairs;
  return start <= rowPairs - kGroupPairs ? start : rowPairs - kGroupPairs;
}

// Plans groups from firstPair on until the row ends, the tile is full or there are `most` of them.
template <int windows>
void PlanTile(Tile<windows>* tile, const Sampling& s, int32_t firstPair, int32_t srcWidth,
              int32_t most) {
  tile->shuffleCount = 0;
  tile->groupCount = 0;
  while (tile->groupCount < most && firstPair + tile->groupCount * kGroupPairs < s.pairs) {
    const int32_t pair = GroupStart(firstPair, tile->groupCount, s.pairs);
    if (!PlanGroup(tile, Advance(s.x, s.stepX, 2 * pair), s.stepX, srcWidth)) return;
    ++tile->groupCount;
  }
}

struct Candidates {
  __m128i a, b;
};

template <int windows>
__attribute__((target("ssse3"))) inline Candidates Shuffle_SSSE3(const Shuffle<windows>& shuffle,
                                                                 const Group<windows>& group,
                                                                 const uint8_t* row) {
  if constexpr (windows == 1) {
    const __m128i pixels = LoadWindow_SSE2(row, group.starts[0]);
    return {_mm_shuffle_epi8(pixels, shuffle.vectors[0]),
            _mm_shuffle_epi8(pixels, shuffle.vectors[1])};
  } else {
    __m128i parts[windows];
    for (int32_t i = 0; i < windows; ++i) {
      parts[i] = _mm_shuffle_epi8(LoadWindow_SSE2(row, group.starts[i]), shuffle.vectors[i]);
    }
    if constexpr (windows == 4) {
      parts[0] = _mm_or_si128(parts[0], parts[1]);
      parts[1] = _mm_or_si128(parts[2], parts[3]);
    }
    return {_mm_unpacklo_epi64(parts[0], parts[1]), _mm_unpackhi_epi64(parts[0], parts[1])};
  }
}

__attribute__((target("ssse3"))) inline void StoreMean_SSSE3(const Candidates& c, uint8_t* dst) {
  // The average instruction rounds up; the floor mean is one less where the sum is odd.
  const __m128i odd = _mm_and_si128(_mm_xor_si128(c.a, c.b), _mm_set1_epi8(1));
  const __m128i mean = _mm_sub_epi8(_mm_avg_epu8(c.a, c.b), odd);
  StoreVector_SSE2(dst, mean);
}

// dst is where the tile's first group goes, `last` where its last one goes.
template <int windows>
__attribute__((target("ssse3"))) void SampleTile_SSSE3(const Tile<windows>& tile,
                                                       const uint8_t* row, uint8_t* dst,
                                                       uint8_t* last) {
  const Group<windows>* group = tile.groups;
  for (const Group<windows>* end = group + tile.groupCount - 1; group < end; ++group) {
    StoreMean_SSSE3(Shuffle_SSSE3(tile.shuffles[group->shuffle], *group, row), dst);
    dst += kGroupBytes;
  }
  StoreMean_SSSE3(Shuffle_SSSE3(tile.shuffles[group->shuffle], *group, row), last);
}

// Groups that all look like the tile's first, `advance` source bytes apart.
template <int windows>
__attribute__((target("ssse3"))) void SampleSteady_SSSE3(const Tile<windows>& tile, int32_t groups,
                                                         ptrdiff_t advance, const uint8_t* row,
                                                         uint8_t* dst) {
  // Copies that no store to dst can change stay in registers.
  const Shuffle<windows> shuffle = tile.shuffles[0];
  const Group<windows> first = tile.groups[0];
  for (int32_t group = 0; group < groups; ++group) {
    StoreMean_SSSE3(Shuffle_SSSE3(shuffle, first, row), dst);
    row += advance;
    dst += kGroupBytes;
  }
}

// Steps of whole quarters of a pixel (2, 1.5, 0.5 and the like) move each group by whole pixel
// pairs against the one before: up to the right edge all are shuffled alike. Returns how many pairs
// of each row are done.
template <int windows>
int32_t SampleSteadyRows_SSSE3(const Sampling& s, int32_t srcWidth, Tile<windows>* tile) {
  if (s.stepX % 0x4000 != 0) return 0;
  const int32_t pairsPerGroup = s.stepX / 0x4000;
  // The last window of a group is the first that would have to move back from the right edge.
  const int32_t lastPair = kGroupPairs - kGroupPairs / windows;
  const int32_t lastWindow = (Advance(s.x, s.stepX, 2 * lastPair) >> 16) / 2;
  const int32_t room = (srcWidth - kYuv16WindowPixels) / 2 - lastWindow;
  if (room < 0) return 0;
  int32_t groups = s.pairs / kGroupPairs;
  if (groups > room / pairsPerGroup + 1) groups = room / pairsPerGroup + 1;
  PlanTile(tile, s, 0, srcWidth, 1);
  ForEachRow(s, 0, static_cast<size_t>(groups) * kGroupBytes,
             [tile, groups, pairsPerGroup](const uint8_t* row, uint8_t* dst) {
               SampleSteady_SSSE3(*tile, groups, ptrdiff_t{pairsPerGroup} * 4, row, dst);
             });
  return groups * kGroupPairs;
}

// For rows of at least 4 destination pairs and 8 source pixels, with all columns inside the source.
template <int windows>
void SampleRows_SSSE3(const Sampling& s, int32_t srcWidth) {
  Tile<windows> tile;
  int32_t first = SampleSteadyRows_SSSE3(s, srcWidth, &tile);
  for (; first < s.pairs; first += tile.groupCount * kGroupPairs) {
    PlanTile(&tile, s, first, srcWidth, Tile<windows>::kGroups);
    const int32_t lastGroup = GroupStart(first, tile.groupCount - 1, s.pairs);
    const ptrdiff_t lastByte = ptrdiff_t{lastGroup - first} * 4;
    const int32_t from = lastGroup < first ? lastGroup : first;
    const size_t bytes = static_cast<size_t>(lastGroup + kGroupPairs - from) * 4;
    ForEachRow(
        s, static_cast<size_t>(from) * 4, bytes,
        [&tile, lastByte, skip = ptrdiff_t{first - from} * 4](const uint8_t* row, uint8_t* dst) {
          SampleTile_SSSE3(tile, row, dst + skip, dst + skip + lastByte);
        });
  }
}

// inside: all columns lie in the source row.
void SampleRows(const Sampling& s, int32_t srcWidth, bool inside) {
  // Windows lie inside a source row of whole pixel pairs.
  const bool windows = inside && srcWidth >= kYuv16WindowPixels && srcWidth % 2 == 0 &&
                       s.pairs >= kGroupPairs && s.stepX > 0 &&
                       AvailableInstructionSet() >= InstructionSet::SSSE3;
  if (s.stepX == 1 << 16 && s.x % (2 << 16) == 0) {
    // Each pair keeps its own chroma: whole rows are copied.
    const size_t bytes = size_t{4} * static_cast<size_t>(s.pairs);
    ForEachRow(s, 0, bytes, [&s, bytes](const uint8_t* row, uint8_t* dst) {
      KolmCopy(dst, row + ptrdiff_t{s.x >> 16} * 2, bytes);
    });
  } else if (!windows) {
    SampleRows_Plain(s);
  } else if (s.stepX * int64_t{7} <= 6 << 16) {
    SampleRows_SSSE3<1>(s, srcWidth);
  } else if (s.stepX <= 2 << 16) {
    SampleRows_SSSE3<2>(s, srcWidth);
  } else if (s.stepX <= 6 << 16) {
    SampleRows_SSSE3<4>(s, srcWidth);
  } else {
    SampleRows_Plain(s);
  }
}

Sampling MakeSampling(const uint8_t* src, int32_t srcWidth, uint8_t* dst, size_t dstStride,
                      int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                      int32_t cropWidth, int32_t cropHeight) {
  return {
      .src = src,
      .srcStride = ptrdiff_t{srcWidth} * 2,
      .dst = dst,
      .dstStride = dstStride,
      .pairs = (dstWidth - 1) / 2 + 1,
      .rows = dstHeight,
      .x = FixedPoint(cropX),
      .stepX = FixedPoint(cropWidth) / dstWidth,
      .y = FixedPoint(cropY),
      .stepY = FixedPoint(cropHeight) / dstHeight,
  };
}

size_t PairRowBytes(int32_t width) { return size_t{4} * ((static_cast<size_t>(width) + 1) / 2); }

struct Range {
  int32_t first, end;
};

// Byte `byte` of row `row`, counted on from the frame's first byte as if rows went on at either
// end; where that is outside the frame, the same byte of the nearest row, and failing that of the
// frame's first or last pixel pair. frameBytes is at least 4.
uint8_t ByteInside(const Sampling& s, ptrdiff_t frameBytes, int32_t row, int32_t byte) {
  ptrdiff_t at = row * s.srcStride + byte;
  if (at < 0) {
    at = byte;
  } else if (at >= frameBytes) {
    at = frameBytes - s.srcStride + byte;
  }
  if (at < 0) return s.src[byte & 3];
  if (at >= frameBytes) return s.src[frameBytes - 4 + (byte & 3)];
  return s.src[at];
}

// The destination's `pairs` of its `rows`.
void SampleInside(const Sampling& s, ptrdiff_t frameBytes, Range rows, Range pairs) {
  for (int32_t j = rows.first; j < rows.end; ++j) {
    const int32_t row = Advance(s.y, s.stepY, j) >> 16;
    uint8_t* dst = s.dst + static_cast<size_t>(j) * s.dstStride;
    for (int32_t pair = pairs.first; pair < pairs.end; ++pair) {
      int32_t luma[2], u = 0, v = 0;
      for (int32_t i = 0; i < 2; ++i) {
        const int32_t column = Advance(s.x, s.stepX, 2 * pair + i) >> 16;
        const int32_t start = (column & ~1) * 2;
        luma[i] = ByteInside(s, frameBytes, row, column * 2);
        u += ByteInside(s, frameBytes, row, start + 1);
        v += ByteInside(s, frameBytes, row, start + 3);
      }
      uint8_t* out = dst + static_cast<size_t>(pair) * 4;
      out[0] = static_cast<uint8_t>(luma[0]);
      out[1] = static_cast<uint8_t>(u >> 1);
      out[2] = static_cast<uint8_t>(luma[1]);
      out[3] = static_cast<uint8_t>(v >> 1);
    }
  }
}

// Which groups of `perGroup` positions, of `groups` in a row, lie wholly at samples 0 to size - 1:
// none if the positions run backwards or wrap.
Range GroupsInside(int32_t position, int32_t step, int32_t perGroup, int32_t groups, int32_t size) {
  const int64_t count = int64_t{groups} * perGroup;
  if (step < 0 || position + step * (count - 1) > INT32_MAX) return {0, 0};
  // How many of the positions lie before `sample`.
  const auto before = [=](int64_t sample) {
    const int64_t distance = (sample << 16) - position;
    if (distance <= 0) return int64_t{0};
    const int64_t most = step == 0 ? count : (distance + step - 1) / step;
    return most < count ? most : count;
  };
  return {static_cast<int32_t>((before(0) + perGroup - 1) / perGroup),
          static_cast<int32_t>(before(size) / perGroup)};
}

}  // namespace

void CropScaleYUV16ToRows(const uint8_t* src, int32_t srcWidth, int32_t /*srcHeight*/, uint8_t* dst,
                          size_t dstStride, int32_t dstWidth, int32_t dstHeight, int32_t cropX,
                          int32_t cropY, int32_t cropWidth, int32_t cropHeight) {
  if (dstWidth <= 0 || dstHeight <= 0) return;
  const Sampling s = MakeSampling(src, srcWidth, dst, dstStride, dstWidth, dstHeight, cropX, cropY,
                                  cropWidth, cropHeight);
  const bool inside = cropX >= 0 && cropX <= srcWidth && cropWidth <= srcWidth - cropX;
  SampleRows(s, srcWidth, inside && dstWidth % 2 == 0);
}

void CropScaleYUV16(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                    int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                    int32_t cropWidth, int32_t cropHeight) {
  const size_t stride = dstWidth <= 0 ? 0 : PairRowBytes(dstWidth);
  CropScaleYUV16ToRows(src, srcWidth, srcHeight, dst, stride, dstWidth, dstHeight, cropX, cropY,
                       cropWidth, cropHeight);
}

void CropScaleYUV16Inside(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                          int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                          int32_t cropWidth, int32_t cropHeight) {
  if (dstWidth <= 0 || dstHeight <= 0 || srcWidth <= 0 || srcHeight <= 0) return;
  const ptrdiff_t frameBytes = ptrdiff_t{srcWidth} * srcHeight * 2;
  if (frameBytes < 4) return;
  const Sampling s = MakeSampling(src, srcWidth, dst, PairRowBytes(dstWidth), dstWidth, dstHeight,
                                  cropX, cropY, cropWidth, cropHeight);
  Range rows = GroupsInside(s.y, s.stepY, 1, s.rows, srcHeight);
  Range pairs = GroupsInside(s.x, s.stepX, 2, s.pairs, srcWidth);
  // The last pair of an odd width has no second pixel.
  if (srcWidth % 2 != 0 || rows.first >= rows.end || pairs.first >= pairs.end) {
    rows = pairs = {0, 0};
  }

  SampleInside(s, frameBytes, {0, rows.first}, {0, s.pairs});
  SampleInside(s, frameBytes, rows, {0, pairs.first});
  SampleInside(s, frameBytes, rows, {pairs.end, s.pairs});
  SampleInside(s, frameBytes, {rows.end, s.rows}, {0, s.pairs});
  if (rows.first == rows.end) return;
  Sampling middle = s;
  middle.dst += static_cast<size_t>(rows.first) * s.dstStride + size_t{4} * pairs.first;
  middle.pairs = pairs.end - pairs.first;
  middle.rows = rows.end - rows.first;
  middle.x = Advance(s.x, s.stepX, 2 * pairs.first);
  middle.y = Advance(s.y, s.stepY, rows.first);
  SampleRows(middle, srcWidth, true);
}

}  // namespace kolm
