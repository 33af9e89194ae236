// Nearest-sample crop and scale.
#include "imaging/crop_scale_yuv16.h"

#include <tmmintrin.h>

#include "imaging/fixed_point.h"
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
// columns.
constexpr int32_t kGroupPairs = 4;
constexpr int32_t kGroupBytes = 16;
constexpr int32_t kTileWindows = 320;
constexpr int32_t kTileShuffles = 24;

// A pair's bytes have two candidates, its first pixel's (a) and its second pixel's (b); their floor
// mean is the result. For luma both are the same.
// A lone window is shuffled twice, for the a and for the b of its 4 pairs. Otherwise a group's
// windows are merged into two vectors, each with the a of 2 pairs in its low half and their b in
// its high.
template <int windowsPerGroup>
struct Shuffle {
  __m128i vectors[windowsPerGroup == 1 ? 2 : 1];
};

template <int windowsPerGroup>
struct Tile {
  Shuffle<windowsPerGroup> shuffles[kTileShuffles];
  uint32_t keys[kTileShuffles];  // what tells one shuffle from another
  Yuv16Window windows[kTileWindows];
  int32_t shuffleCount = 0;
  int32_t groups = 0;
};

// Writes the shuffle that fetches the pairs at positions x, x + 2 * stepX, ... from a window, to be
// merged into a group as its pairs from `firstPair` on.
template <int windowsPerGroup>
void WriteShuffle(Shuffle<windowsPerGroup>* shuffle, int32_t start, int32_t firstPair, int32_t x,
                  int32_t stepX) {
  constexpr uint8_t kZero = 0x80;
  uint8_t bytes[sizeof *shuffle];
  for (uint8_t& byte : bytes) byte = kZero;
  for (int32_t i = 0; i < kGroupPairs / windowsPerGroup; ++i) {
    uint8_t* a = bytes + (windowsPerGroup == 1 ? i : (firstPair + i) % 2) * 4;
    uint8_t* b = a + (windowsPerGroup == 1 ? 16 : 8);
    const int32_t columnA = (x >> 16) - 2 * start;
    const int32_t columnB = (Advance(x, stepX) >> 16) - 2 * start;
    a[0] = b[0] = static_cast<uint8_t>(2 * columnA);
    a[2] = b[2] = static_cast<uint8_t>(2 * columnB);
    a[1] = static_cast<uint8_t>(2 * (columnA & ~1) + 1);
    a[3] = static_cast<uint8_t>(2 * (columnA & ~1) + 3);
    b[1] = static_cast<uint8_t>(2 * (columnB & ~1) + 1);
    b[3] = static_cast<uint8_t>(2 * (columnB & ~1) + 3);
    x = Advance(x, stepX, 2);
  }
  KolmCopy(shuffle, bytes, sizeof bytes);
}

// Plans the window for the pairs from x on; false if the tile has no room for another shuffle.
template <int windowsPerGroup>
bool PlanWindow(Tile<windowsPerGroup>* tile, Yuv16Window* window, int32_t firstPair, int32_t x,
                int32_t stepX, int32_t srcWidth) {
  const int32_t start = Yuv16WindowStart(x >> 16, srcWidth);
  uint32_t key = windowsPerGroup == 4 ? firstPair % 2 : 0;
  for (int32_t pixel = 0; pixel < 2 * kGroupPairs / windowsPerGroup; ++pixel) {
    const int32_t column = (Advance(x, stepX, pixel) >> 16) - 2 * start;
    key = key * kYuv16WindowPixels + static_cast<uint32_t>(column);
  }
  int32_t shuffle = 0;
  while (shuffle < tile->shuffleCount && tile->keys[shuffle] != key) ++shuffle;
  if (shuffle == kTileShuffles) return false;
  if (shuffle == tile->shuffleCount) {
    WriteShuffle(&tile->shuffles[shuffle], start, firstPair, x, stepX);
    tile->keys[shuffle] = key;
    ++tile->shuffleCount;
  }
  window->start = static_cast<uint16_t>(start);
  window->shuffle = static_cast<uint16_t>(shuffle);
  return true;
}

// The first pair of the group that begins a multiple of 4 pairs behind firstPair: the last group of
// a row ends with the row and may overlap the one before it.
int32_t GroupStart(int32_t firstPair, int32_t group, int32_t rowPairs) {
  const int32_t start = firstPair + group * kGroupPairs;
  return start <= rowPairs - kGroupPairs ? start : rowPairs - kGroupPairs;
}

// Plans groups from firstPair on until the row ends, the tile is full or there are `most` of them.
template <int windowsPerGroup>
void PlanTile(Tile<windowsPerGroup>* tile, const Sampling& s, int32_t firstPair, int32_t srcWidth,
              int32_t most) {
  tile->shuffleCount = 0;
  tile->groups = 0;
  while (tile->groups < most && firstPair + tile->groups * kGroupPairs < s.pairs) {
    Yuv16Window* window = tile->windows + tile->groups * windowsPerGroup;
    const int32_t groupStart = GroupStart(firstPair, tile->groups, s.pairs);
    for (int32_t pair = 0; pair < kGroupPairs; pair += kGroupPairs / windowsPerGroup) {
      const int32_t x = Advance(s.x, s.stepX, 2 * (groupStart + pair));
      if (!PlanWindow(tile, window++, pair, x, s.stepX, srcWidth)) return;
    }
    ++tile->groups;
  }
}

struct Candidates {
  __m128i a, b;
};

template <int windowsPerGroup>
__attribute__((target("ssse3"))) inline Candidates Shuffle_SSSE3(
    const Shuffle<windowsPerGroup>* shuffles, const Yuv16Window* windows, const uint8_t* row) {
  if constexpr (windowsPerGroup == 1) {
    const __m128i pixels = LoadWindow_SSE2(row, windows[0]);
    const __m128i* vectors = shuffles[windows[0].shuffle].vectors;
    return {_mm_shuffle_epi8(pixels, vectors[0]), _mm_shuffle_epi8(pixels, vectors[1])};
  } else {
    __m128i parts[windowsPerGroup];
    for (int32_t i = 0; i < windowsPerGroup; ++i) {
      parts[i] = _mm_shuffle_epi8(LoadWindow_SSE2(row, windows[i]),
                                  shuffles[windows[i].shuffle].vectors[0]);
    }
    if constexpr (windowsPerGroup == 4) {
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
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), mean);
}

// dst is where the tile's first group goes, `last` where its last one goes.
template <int windowsPerGroup>
__attribute__((target("ssse3"))) void SampleTile_SSSE3(const Tile<windowsPerGroup>& tile,
                                                       const uint8_t* row, uint8_t* dst,
                                                       uint8_t* last) {
  const Yuv16Window* window = tile.windows;
  for (int32_t group = 1; group <= tile.groups; ++group) {
    StoreMean_SSSE3(Shuffle_SSSE3(tile.shuffles, window, row), group < tile.groups ? dst : last);
    dst += kGroupBytes;
    window += windowsPerGroup;
  }
}

// Groups that all look like the tile's first, `advance` source bytes apart.
template <int windowsPerGroup>
__attribute__((target("ssse3"))) void SampleSteady_SSSE3(const Tile<windowsPerGroup>& tile,
                                                         int32_t groups, ptrdiff_t advance,
                                                         const uint8_t* row, uint8_t* dst) {
  // Copies that no store to dst can change stay in registers.
  Shuffle<windowsPerGroup> shuffles[windowsPerGroup];
  Yuv16Window windows[windowsPerGroup];
  for (int32_t i = 0; i < windowsPerGroup; ++i) {
    shuffles[i] = tile.shuffles[tile.windows[i].shuffle];
    windows[i] = {tile.windows[i].start, static_cast<uint16_t>(i)};
  }
  for (int32_t group = 0; group < groups; ++group) {
    StoreMean_SSSE3(Shuffle_SSSE3(shuffles, windows, row), dst);
    row += advance;
    dst += kGroupBytes;
  }
}

// Steps of whole quarters of a pixel (2, 1.5, 0.5 and the like) move each group by whole pixel
// pairs against the one before: up to the right edge all are shuffled alike. Returns how many pairs
// of each row are done.
template <int windowsPerGroup>
int32_t SampleSteadyRows_SSSE3(const Sampling& s, int32_t srcWidth, Tile<windowsPerGroup>* tile) {
  if (s.stepX % 0x4000 != 0) return 0;
  const int32_t pairsPerGroup = s.stepX / 0x4000;
  // The last window of a group is the first that would have to move back from the right edge.
  const int32_t lastPair = kGroupPairs - kGroupPairs / windowsPerGroup;
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
template <int windowsPerGroup>
void SampleRows_SSSE3(const Sampling& s, int32_t srcWidth) {
  Tile<windowsPerGroup> tile;
  int32_t first = SampleSteadyRows_SSSE3(s, srcWidth, &tile);
  for (; first < s.pairs; first += tile.groups * kGroupPairs) {
    PlanTile(&tile, s, first, srcWidth, kTileWindows / windowsPerGroup);
    const int32_t lastGroup = GroupStart(first, tile.groups - 1, s.pairs);
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

}  // namespace

void CropScaleYUV16ToRows(const uint8_t* src, int32_t srcWidth, int32_t /*srcHeight*/, uint8_t* dst,
                          size_t dstStride, int32_t dstWidth, int32_t dstHeight, int32_t cropX,
                          int32_t cropY, int32_t cropWidth, int32_t cropHeight) {
  if (dstWidth <= 0 || dstHeight <= 0) return;
  const Sampling s = {
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
  // Windows lie inside a source row of whole pixel pairs.
  const bool inside = cropX >= 0 && cropX <= srcWidth && cropWidth <= srcWidth - cropX &&
                      srcWidth >= kYuv16WindowPixels && srcWidth % 2 == 0;
  const bool whole = dstWidth % 2 == 0 && s.pairs >= kGroupPairs;
  if (s.stepX == 1 << 16 && cropX % 2 == 0 && dstWidth % 2 == 0) {
    // Each pair keeps its own chroma: whole rows are copied.
    const size_t bytes = size_t{4} * static_cast<size_t>(s.pairs);
    ForEachRow(s, 0, bytes, [&s, cropX, bytes](const uint8_t* row, uint8_t* dst) {
      KolmCopy(dst, row + ptrdiff_t{cropX} * 2, bytes);
    });
  } else if (AvailableInstructionSet() < InstructionSet::SSSE3 || !inside || !whole ||
             s.stepX <= 0) {
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

void CropScaleYUV16(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                    int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                    int32_t cropWidth, int32_t cropHeight) {
  const size_t stride = dstWidth <= 0 ? 0 : size_t{4} * ((static_cast<size_t>(dstWidth) + 1) / 2);
  CropScaleYUV16ToRows(src, srcWidth, srcHeight, dst, stride, dstWidth, dstHeight, cropX, cropY,
                       cropWidth, cropHeight);
}

}  // namespace kolm
