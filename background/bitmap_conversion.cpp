// Resampling and colour conversion of bitmap pictures.
#include "background/bitmap_conversion.h"

#include <stddef.h>
#include <tmmintrin.h>

#include "imaging/vectors_sse2.h"
#include "module/kolm.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

constexpr int32_t kWidth = KOLM_BACKGROUND_WIDTH;
constexpr int32_t kHeight = KOLM_BACKGROUND_HEIGHT;

int32_t Interpolate(int32_t from, int32_t to, int32_t fraction) {
  return (((to - from) * fraction) >> 16) + from;
}

int32_t ByteAt(const StoredPicture& picture, uint64_t offset) {
  return offset < picture.bytes ? picture.pixels[offset] : 0;
}

int64_t Neighbour(int64_t sample, int32_t size) { return sample + 1 < size ? sample + 1 : sample; }

struct Yuv {
  int32_t y, u, v;  // u and v around 0
};

Yuv ConvertPixel(const uint8_t* pixel) {
  const int32_t b = pixel[0];
  const int32_t g = pixel[1];
  const int32_t r = pixel[2];
  return {((66 * r + 129 * g + 25 * b + 128) >> 8) + 16, (112 * b - 74 * g - 38 * r + 128) >> 8,
          (112 * r - 94 * g - 18 * b + 128) >> 8};
}

void ConvertPairs_Plain(const uint8_t* pixels, int32_t pixelBytes, uint8_t* frame, uint8_t* alpha,
                        int32_t count) {
  for (int32_t pair = 0; pair < count; ++pair) {
    const uint8_t* evenPixel = pixels + ptrdiff_t{pair} * 2 * pixelBytes;
    const uint8_t* oddPixel = evenPixel + pixelBytes;
    const Yuv even = ConvertPixel(evenPixel);
    const Yuv odd = ConvertPixel(oddPixel);
    uint8_t* out = frame + ptrdiff_t{pair} * 4;
    out[0] = static_cast<uint8_t>(even.y);
    out[1] = static_cast<uint8_t>((even.u + odd.u + 256) >> 1);
    out[2] = static_cast<uint8_t>(odd.y);
    out[3] = static_cast<uint8_t>((even.v + odd.v + 256) >> 1);
    alpha[2 * pair] = pixelBytes == 4 ? evenPixel[3] : 255;
    alpha[2 * pair + 1] = pixelBytes == 4 ? oddPixel[3] : 255;
  }
}

// 8 pixels: their blue and green bytes in turn, and their red bytes with kConstant behind each, by
// which the sums of products get their constants.
struct PixelVectors {
  __m128i blueGreen, redConstant;
};

constexpr int32_t kConstant = 129;

// Packed 4:2:2 of 8 pixels. The products' factors are unsigned and signed.
__attribute__((target("ssse3"))) inline __m128i ConvertVector_SSSE3(const PixelVectors& p) {
  const auto weights = [](int32_t low, int32_t high) {
    return _mm_set1_epi16(static_cast<int16_t>((low & 0xFF) | high * 0x100));
  };
  // 129 does not fit a signed byte: blue and green go in less 128 as the signed factors, and 128
  // times their weights is added with luma's rounding and its offset of 16.
  const __m128i sumY = _mm_add_epi16(
      _mm_maddubs_epi16(weights(25, 129), _mm_xor_si128(p.blueGreen, _mm_set1_epi8(-128))),
      _mm_maddubs_epi16(p.redConstant, weights(66, 0)));
  const __m128i luma =
      _mm_srli_epi16(_mm_add_epi16(sumY, _mm_set1_epi16(128 * (25 + 129) + 128 + (16 << 8))), 8);
  // The complements of the chroma sums, -sum - 128 - 1: in their high bytes stand the complements
  // of u and v, and the rounding-up average of two complements is the complement of the average
  // that rounds down.
  const __m128i u = _mm_add_epi16(_mm_maddubs_epi16(p.blueGreen, weights(-112, 74)),
                                  _mm_maddubs_epi16(p.redConstant, weights(38, -1)));
  const __m128i v = _mm_add_epi16(_mm_maddubs_epi16(p.blueGreen, weights(18, 94)),
                                  _mm_maddubs_epi16(p.redConstant, weights(-112, -1)));
  const __m128i highBytes = _mm_set1_epi16(static_cast<int16_t>(0xFF00));
  const __m128i both = _mm_or_si128(_mm_srli_epi16(u, 8), _mm_and_si128(v, highBytes));
  const __m128i unsignedBoth = _mm_xor_si128(both, _mm_set1_epi8(-128));
  const __m128i chroma = _mm_avg_epu8(unsignedBoth, _mm_srli_epi32(unsignedBoth, 16));
  const __m128i spread = _mm_setr_epi8(-1, 0, -1, 1, -1, 4, -1, 5, -1, 8, -1, 9, -1, 12, -1, 13);
  return _mm_xor_si128(_mm_or_si128(luma, highBytes), _mm_shuffle_epi8(chroma, spread));
}

// 4 pixels of each vector, as `order` finds their blue and green bytes and, behind those, their
// red.
__attribute__((target("ssse3"))) inline PixelVectors Gather_SSSE3(__m128i first, __m128i firstOrder,
                                                                  __m128i second,
                                                                  __m128i secondOrder) {
  first = _mm_shuffle_epi8(first, firstOrder);
  second = _mm_shuffle_epi8(second, secondOrder);
  const __m128i constant = _mm_set1_epi16(static_cast<int16_t>(kConstant << 8));
  return {_mm_unpacklo_epi64(first, second),
          _mm_or_si128(_mm_unpackhi_epi64(first, second), constant)};
}

// `count` is a multiple of 4.
__attribute__((target("ssse3"))) void ConvertPairs3_SSSE3(const uint8_t* pixels, uint8_t* frame,
                                                          uint8_t* alpha, int32_t count) {
  const __m128i first = _mm_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 2, -1, 5, -1, 8, -1, 11, -1);
  // The last four pixels are read with 4 bytes before them, not to read beyond the picture.
  const __m128i second = _mm_setr_epi8(4, 5, 7, 8, 10, 11, 13, 14, 6, -1, 9, -1, 12, -1, 15, -1);
  for (int32_t pair = 0; pair < count; pair += 4) {
    const uint8_t* bytes = pixels + ptrdiff_t{pair} * 6;
    const PixelVectors vectors =
        Gather_SSSE3(LoadVector_SSE2(bytes), first, LoadVector_SSE2(bytes + 8), second);
    StoreVector_SSE2(frame + ptrdiff_t{pair} * 4, ConvertVector_SSSE3(vectors));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(alpha + ptrdiff_t{pair} * 2), _mm_set1_epi8(-1));
  }
}

__attribute__((target("ssse3"))) void ConvertPairs4_SSSE3(const uint8_t* pixels, uint8_t* frame,
                                                          uint8_t* alpha, int32_t count) {
  const __m128i order = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, -1, 6, -1, 10, -1, 14, -1);
  for (int32_t pair = 0; pair < count; pair += 4) {
    const uint8_t* bytes = pixels + ptrdiff_t{pair} * 8;
    const __m128i first = LoadVector_SSE2(bytes);
    const __m128i second = LoadVector_SSE2(bytes + 16);
    StoreVector_SSE2(frame + ptrdiff_t{pair} * 4,
                     ConvertVector_SSSE3(Gather_SSSE3(first, order, second, order)));
    const __m128i alphas = _mm_packs_epi32(_mm_srli_epi32(first, 24), _mm_srli_epi32(second, 24));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(alpha + ptrdiff_t{pair} * 2),
                     _mm_packus_epi16(alphas, alphas));
  }
}

}  // namespace

void ResamplePicture(const StoredPicture& picture, uint8_t* target) {
  const int64_t stepX = (int64_t{picture.width} << 16) / kWidth;
  const int64_t stepY = (int64_t{picture.height} << 16) / kHeight;
  for (int32_t row = 0; row < kHeight; ++row) {
    const int64_t y = row * stepY;
    const uint64_t top = static_cast<uint64_t>(y >> 16) * picture.stride;
    const uint64_t bottom =
        static_cast<uint64_t>(Neighbour(y >> 16, picture.height)) * picture.stride;
    const int32_t fractionY = static_cast<int32_t>(y & 0xFFFF);
    for (int32_t column = 0; column < kWidth; ++column) {
      const int64_t x = column * stepX;
      const uint64_t left = static_cast<uint64_t>((x >> 16) * picture.pixelBytes);
      const uint64_t right =
          static_cast<uint64_t>(Neighbour(x >> 16, picture.width) * picture.pixelBytes);
      const int32_t fractionX = static_cast<int32_t>(x & 0xFFFF);
      for (int32_t channel = 0; channel < picture.pixelBytes; ++channel) {
        const uint64_t c = static_cast<uint64_t>(channel);
        const int32_t t = Interpolate(ByteAt(picture, top + left + c),
                                      ByteAt(picture, top + right + c), fractionX);
        const int32_t b = Interpolate(ByteAt(picture, bottom + left + c),
                                      ByteAt(picture, bottom + right + c), fractionX);
        *target++ = static_cast<uint8_t>(Interpolate(t, b, fractionY));
      }
    }
  }
}

void ConvertPicture(const uint8_t* pixels, int32_t pixelBytes, RowOrder order, uint8_t* record) {
  constexpr int32_t kPairs = kWidth / 2;
  const bool vectors = AvailableInstructionSet() >= InstructionSet::SSSE3;
  uint8_t* alphaPlane = record + offsetof(BackgroundRecord, alpha);
  for (int32_t row = 0; row < kHeight; ++row) {
    const int32_t sourceRow = order == RowOrder::TopDown ? row : kHeight - 1 - row;
    const uint8_t* source = pixels + ptrdiff_t{sourceRow} * kWidth * pixelBytes;
    uint8_t* frame = record + ptrdiff_t{row} * kWidth * 2;
    uint8_t* alpha = alphaPlane + ptrdiff_t{row} * kWidth;
    // A row is whole vectors: no pair is left over.
    static_assert(kPairs % 4 == 0);
    if (!vectors) {
      ConvertPairs_Plain(source, pixelBytes, frame, alpha, kPairs);
    } else if (pixelBytes == 4) {
      ConvertPairs4_SSSE3(source, frame, alpha, kPairs);
    } else {
      ConvertPairs3_SSSE3(source, frame, alpha, kPairs);
    }
  }
}

}  // namespace kolm
