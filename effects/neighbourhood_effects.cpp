// Pixelate, the emboss and relief variants, and sketch. They measure luma alone.
#include "effects/neighbourhood_effects.h"

#include "effects/frame.h"
#include "imaging/vectors_sse2.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

int32_t Clamp(int32_t value, int32_t lowest, int32_t highest) {
  return value < lowest ? lowest : value > highest ? highest : value;
}

constexpr uint8_t kDarkest = 16;
constexpr uint8_t kBrightest = 235;
constexpr uint8_t kGreyChroma = 128;

// How a pixel's difference to its upper-left neighbour becomes its luma.
enum class Look { Emboss, Relief };

// Whether chroma becomes grey or stays that of the row above the measured one, where the colour
// variants write their result.
enum class Chroma { Grey, RowAbove };

uint8_t LumaOfDifference(Look look, int32_t difference) {
  return static_cast<uint8_t>(look == Look::Emboss ? Clamp(difference + 128, kDarkest, kBrightest)
                                                   : Clamp(difference, -127, 128));
}

// Writes the pixels from `first` to before `end`. `above` is the row above the measured row.
template <Look look, Chroma chroma>
void DifferencePixels_Plain(const uint8_t* row, const uint8_t* above, uint8_t* destination,
                            size_t first, size_t end) {
  for (size_t x = first; x < end; ++x) {
    destination[2 * x] = LumaOfDifference(look, row[2 * x] - above[2 * x - 2]);
    destination[2 * x + 1] = chroma == Chroma::Grey ? kGreyChroma : above[2 * x + 1];
  }
}

constexpr size_t kVectorPixels = 8;

bool UseVectors() { return AvailableInstructionSet() >= InstructionSet::SSE2; }

__m128i EveryPixel(uint8_t luma, uint8_t chroma) {
  return _mm_set1_epi16(static_cast<int16_t>(luma | chroma << 8));
}

// The same for 8 pixels from x on.
template <Look look, Chroma chroma>
inline void DifferenceVector_SSE2(const uint8_t* row, const uint8_t* above, uint8_t* destination,
                                  size_t x) {
  const __m128i signBits = _mm_set1_epi8(static_cast<char>(128));
  const __m128i lumaBytes = EveryPixel(255, 0);
  const __m128i pixel = _mm_xor_si128(LoadVector_SSE2(row + 2 * x), signBits);
  const __m128i neighbour = _mm_xor_si128(LoadVector_SSE2(above + 2 * x - 2), signBits);
  // Luma as it should be, chroma 0.
  __m128i luma;
  if constexpr (look == Look::Emboss) {
    // Saturation to a signed byte is wider than the range that is kept.
    const __m128i grey = _mm_xor_si128(_mm_subs_epi8(pixel, neighbour), signBits);
    luma = _mm_min_epu8(_mm_max_epu8(grey, EveryPixel(kDarkest, 0)), EveryPixel(kBrightest, 0));
  } else {
    // -127 to 128 is what the opposite difference's saturation to -128 to 127 leaves.
    const __m128i opposite = _mm_subs_epi8(neighbour, pixel);
    luma = _mm_and_si128(_mm_sub_epi8(_mm_setzero_si128(), opposite), lumaBytes);
  }
  const __m128i kept = chroma == Chroma::Grey
                           ? EveryPixel(0, kGreyChroma)
                           : _mm_andnot_si128(lumaBytes, LoadVector_SSE2(above + 2 * x));
  StoreVector_SSE2(destination + 2 * x, _mm_or_si128(luma, kept));
}

// Writes the interior pixels of a row.
template <Look look, Chroma chroma>
void DifferenceRow(const uint8_t* row, const uint8_t* above, uint8_t* destination, size_t width,
                   bool vectors) {
  if (width < 3) return;
  const size_t end = width - 1;
  if (!vectors || end - 1 < kVectorPixels) {
    DifferencePixels_Plain<look, chroma>(row, above, destination, 1, end);
    return;
  }
  // From the second vector on as aligned as the frame is.
  DifferenceVector_SSE2<look, chroma>(row, above, destination, 1);
#pragma GCC unroll 4
  for (size_t x = kVectorPixels; x + kVectorPixels <= end; x += kVectorPixels) {
    DifferenceVector_SSE2<look, chroma>(row, above, destination, x);
  }
  DifferenceVector_SSE2<look, chroma>(row, above, destination, end - kVectorPixels);
}

void GreyPixel(const uint8_t* row, uint8_t* destination, size_t x) {
  destination[2 * x] = row[2 * x];
  destination[2 * x + 1] = kGreyChroma;
}

// Border pixels keep their luma.
template <Look look>
void GreyDifference(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height) {
  const bool vectors = UseVectors();
  for (uint32_t y = 0; y < height && width != 0; ++y) {
    const uint8_t* row = source + FrameBytes(width, y);
    uint8_t* line = destination + FrameBytes(width, y);
    if (y == 0 || y + 1 == height) {
      for (size_t x = 0; x < width; ++x) GreyPixel(row, line, x);
      continue;
    }
    GreyPixel(row, line, 0);
    DifferenceRow<look, Chroma::Grey>(row, row - RowBytes(width), line, width, vectors);
    GreyPixel(row, line, size_t{width} - 1);
  }
}

// The result lands one row above the row that was measured; the last two rows and the border
// columns stay the source's.
template <Look look>
void ColourDifference(const uint8_t* source, uint8_t* destination, uint32_t width,
                      uint32_t height) {
  if (width < 3 || height < 3) {
    CopyFrame(source, destination, width, height);
    return;
  }
  const bool vectors = UseVectors();
  const size_t rowBytes = RowBytes(width);
  for (uint32_t y = 0; y + 2 < height; ++y) {
    const uint8_t* row = source + y * rowBytes;
    uint8_t* line = destination + y * rowBytes;
    KolmCopy(line, row, 2);
    DifferenceRow<look, Chroma::RowAbove>(row + rowBytes, row, line, width, vectors);
    KolmCopy(line + rowBytes - 2, row + rowBytes - 2, 2);
  }
  const size_t rest = (size_t{height} - 2) * rowBytes;
  KolmCopy(destination + rest, source + rest, rowBytes * 2);
}

// What sketch subtracts the strongest gradient from; a flat neighbourhood gives 235.
constexpr int32_t kSketchWhite = 251;

// The largest of five of the eight compass gradients; those towards the right are left out, so that
// edges show with a bias. Writes the pixels from `first` to before `end` of a row; `stride` is the
// row length in bytes.
void SketchPixels_Plain(const uint8_t* row, size_t stride, uint8_t* destination, size_t first,
                        size_t end) {
  const uint8_t* above = row - stride;
  const uint8_t* below = row + stride;
  for (size_t x = first; x < end; ++x) {
    const size_t left = 2 * x - 2;
    const size_t middle = 2 * x;
    const size_t right = 2 * x + 2;
    const int32_t north = above[left] + 2 * above[middle] + above[right] - below[left] -
                          2 * below[middle] - below[right];
    const int32_t west =
        above[left] + 2 * row[left] + below[left] - above[right] - 2 * row[right] - below[right];
    const int32_t across = row[left] - row[right];
    const int32_t down = above[middle] - below[middle];
    const int32_t northWest = 2 * (above[left] - below[right]) + across + down;
    const int32_t southWest = 2 * (below[left] - above[right]) + across - down;
    int32_t largest = north < 0 ? -north : north;  // north and south
    if (west > largest) largest = west;
    if (northWest > largest) largest = northWest;
    if (southWest > largest) largest = southWest;
    destination[middle] = static_cast<uint8_t>(kSketchWhite - Clamp(largest, kDarkest, kBrightest));
    destination[middle + 1] = kGreyChroma;
  }
}

// The same for 8 pixels from x on.
void SketchVector_SSE2(const uint8_t* row, size_t stride, uint8_t* destination, size_t x) {
  const __m128i lumaBytes = EveryPixel(255, 0);
  const auto luma = [lumaBytes](const uint8_t* pixels) {
    return _mm_and_si128(LoadVector_SSE2(pixels), lumaBytes);
  };
  const auto twice = [](__m128i value) { return _mm_add_epi16(value, value); };
  const uint8_t* middle = row + 2 * x;
  const uint8_t* above = middle - stride;
  const uint8_t* below = middle + stride;
  const __m128i aboveLeft = luma(above - 2);
  const __m128i aboveRight = luma(above + 2);
  const __m128i belowLeft = luma(below - 2);
  const __m128i belowRight = luma(below + 2);
  const __m128i across = _mm_sub_epi16(luma(middle - 2), luma(middle + 2));
  const __m128i down = _mm_sub_epi16(luma(above), luma(below));
  // The two diagonals make up the corners' share of all four gradients.
  const __m128i falling = _mm_sub_epi16(aboveLeft, belowRight);
  const __m128i rising = _mm_sub_epi16(belowLeft, aboveRight);
  const __m128i north = _mm_add_epi16(_mm_sub_epi16(falling, rising), twice(down));
  const __m128i west = _mm_add_epi16(_mm_add_epi16(falling, rising), twice(across));
  const __m128i northWest = _mm_add_epi16(twice(falling), down);
  const __m128i southWest = _mm_sub_epi16(twice(rising), down);
  __m128i largest = _mm_add_epi16(_mm_max_epi16(northWest, southWest), across);
  largest = _mm_max_epi16(largest, west);
  largest = _mm_max_epi16(largest, north);
  largest = _mm_max_epi16(largest, _mm_sub_epi16(_mm_setzero_si128(), north));
  largest = _mm_max_epi16(largest, _mm_set1_epi16(kDarkest));
  largest = _mm_min_epi16(largest, _mm_set1_epi16(kBrightest));
  // One subtraction from 251 with 128 above it.
  StoreVector_SSE2(destination + 2 * x,
                   _mm_sub_epi16(EveryPixel(kSketchWhite, kGreyChroma), largest));
}

void SketchRow(const uint8_t* row, size_t stride, uint8_t* destination, size_t width,
               bool vectors) {
  if (width < 3) return;
  const size_t end = width - 1;
  if (!vectors || end - 1 < kVectorPixels) {
    SketchPixels_Plain(row, stride, destination, 1, end);
    return;
  }
  SketchVector_SSE2(row, stride, destination, 1);
  for (size_t x = kVectorPixels; x + kVectorPixels <= end; x += kVectorPixels) {
    SketchVector_SSE2(row, stride, destination, x);
  }
  SketchVector_SSE2(row, stride, destination, end - kVectorPixels);
}

// The first line of a row of blocks of 4 * quads pixels; the last block also fills what is left of
// the line.
void PixelateLine_Plain(const uint8_t* row, uint8_t* line, size_t width, size_t quads) {
  const size_t block = quads * 4;
  const size_t blocks = width / block;
  for (size_t i = 0; i < blocks; ++i) {
    const uint8_t* pair = row + i * block * 2;
    const size_t pixels = i + 1 < blocks ? block : width - i * block;
    FillPixels(line + i * block * 2, pixels, pair[0], pair[1], pair[3]);
  }
}

// The pairs with their first luma twice.
__m128i RepeatLuma_SSE2(__m128i pairs) {
  const __m128i secondLuma = _mm_set1_epi32(0xFF << 16);
  const __m128i moved = _mm_and_si128(_mm_slli_epi32(pairs, 16), secondLuma);
  return _mm_or_si128(_mm_andnot_si128(secondLuma, pairs), moved);
}

void PixelateLine_SSE2(const uint8_t* row, uint8_t* line, size_t width, size_t quads) {
  constexpr size_t kQuadBytes = 8;
  const size_t blockBytes = quads * kQuadBytes;
  const size_t blocks = width / (quads * 4);
  size_t i = 0;
  if (quads == 1) {
    // Two blocks are one vector.
    for (; i + 2 < blocks; i += 2) {
      const __m128i pairs = LoadVector_SSE2(row + i * kQuadBytes);
      const __m128i firstPairs = _mm_shuffle_epi32(pairs, _MM_SHUFFLE(2, 2, 0, 0));
      StoreVector_SSE2(line + i * kQuadBytes, RepeatLuma_SSE2(firstPairs));
    }
  }
  for (; i + 1 < blocks; ++i) {
    int32_t pair;
    __builtin_memcpy(&pair, row + i * blockBytes, sizeof pair);
    const __m128i pairs = RepeatLuma_SSE2(_mm_set1_epi32(pair));
    // The last vector may reach into the next block, which is written next.
    for (size_t byte = 0; byte < blockBytes; byte += sizeof pairs) {
      StoreVector_SSE2(line + i * blockBytes + byte, pairs);
    }
  }
  PixelateLine_Plain(row + i * blockBytes, line + i * blockBytes, width - i * quads * 4, quads);
}

}  // namespace

void Pixelate(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
              uint32_t parameter) {
  const size_t block = size_t{parameter} * 4;
  if (block == 0 || block > width || block > height) {
    CopyFrame(source, destination, width, height);
    return;
  }
  const auto pixelateLine = UseVectors() ? PixelateLine_SSE2 : PixelateLine_Plain;
  const size_t rowBytes = RowBytes(width);
  const size_t down = height / block;
  for (size_t i = 0; i < down; ++i) {
    const size_t y = i * block;
    uint8_t* line = destination + y * rowBytes;
    pixelateLine(source + y * rowBytes, line, width, parameter);
    const size_t lines = i + 1 < down ? block : height - y;
    for (size_t copy = 1; copy < lines; ++copy) KolmCopy(line + copy * rowBytes, line, rowBytes);
  }
}

void EmbossGrey(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                uint32_t /*parameter*/) {
  GreyDifference<Look::Emboss>(source, destination, width, height);
}

void EmbossColour(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                  uint32_t /*parameter*/) {
  ColourDifference<Look::Emboss>(source, destination, width, height);
}

void EdgeReliefGrey(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                    uint32_t /*parameter*/) {
  GreyDifference<Look::Relief>(source, destination, width, height);
}

void EdgeReliefColour(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                      uint32_t /*parameter*/) {
  ColourDifference<Look::Relief>(source, destination, width, height);
}

void Sketch(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
            uint32_t /*parameter*/) {
  const size_t rowBytes = RowBytes(width);
  const bool vectors = UseVectors();
  for (uint32_t y = 0; y < height && width != 0; ++y) {
    uint8_t* line = destination + y * rowBytes;
    if (y == 0 || y + 1 == height) {
      PaintBlack(line, width);
      continue;
    }
    PaintBlack(line, 1);
    SketchRow(source + y * rowBytes, rowBytes, line, width, vectors);
    PaintBlack(line + rowBytes - 2, 1);
  }
}

}  // namespace kolm
