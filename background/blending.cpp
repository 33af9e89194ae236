// A scaled background laid over a live frame.
#include <stddef.h>
#include <tmmintrin.h>

#include "background/background.h"
#include "imaging/vectors_sse2.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

struct Operands {
  const uint8_t* background;
  const uint8_t* alpha;
  const uint8_t* live;
  uint8_t* output;
};

// A shift by 8, not a division by 255: a fully covered byte comes out one less.
uint8_t Blend(uint8_t background, uint8_t live, uint32_t alpha) {
  return static_cast<uint8_t>((background * alpha + live * (255 - alpha)) >> 8);
}

// The pair's chroma follows its even pixel's alpha. Of an odd pixel count the last pixel is done
// alone: its luma and the chroma byte behind it.
void BlendPixels_Plain(const Operands& o, size_t first, size_t end) {
  for (size_t pixel = first; pixel < end; ++pixel) {
    const size_t luma = pixel * 2;
    const size_t chroma = luma + 1;
    const uint8_t alpha = o.alpha[pixel];
    const uint8_t chromaAlpha = o.alpha[pixel & ~size_t{1}];
    o.output[luma] = Blend(o.background[luma], o.live[luma], alpha);
    o.output[chroma] = Blend(o.background[chroma], o.live[chroma], chromaAlpha);
  }
}

constexpr size_t kBlockPixels = 16;
constexpr size_t kPrefetchBytes = 1024;

// 8 pixels. The products' factors are unsigned and signed: bytes go in less 128, and since both
// weights of a byte add up to 255, its sum comes out less 128 * 255 and stays within 16 signed
// bits. Rounding the shift by 8 up by a half and adding 127 afterwards makes that good.
__attribute__((target("ssse3"))) inline __m128i BlendVector_SSSE3(__m128i background, __m128i live,
                                                                  __m128i alpha) {
  const __m128i spread = _mm_setr_epi8(0, 0, 1, 0, 2, 2, 3, 2, 4, 4, 5, 4, 6, 6, 7, 6);
  const __m128i signBits = _mm_set1_epi8(static_cast<char>(128));
  const __m128i shiftBy8 = _mm_set1_epi16(1 << 7);
  background = _mm_xor_si128(background, signBits);
  live = _mm_xor_si128(live, signBits);
  alpha = _mm_shuffle_epi8(alpha, spread);
  const __m128i rest = _mm_xor_si128(alpha, _mm_set1_epi8(-1));
  const __m128i low =
      _mm_maddubs_epi16(_mm_unpacklo_epi8(alpha, rest), _mm_unpacklo_epi8(background, live));
  const __m128i high =
      _mm_maddubs_epi16(_mm_unpackhi_epi8(alpha, rest), _mm_unpackhi_epi8(background, live));
  const __m128i shifted =
      _mm_packs_epi16(_mm_mulhrs_epi16(low, shiftBy8), _mm_mulhrs_epi16(high, shiftBy8));
  return _mm_add_epi8(shifted, _mm_set1_epi8(127));
}

// Whole blocks; returns how many pixels were done. Most blocks of a mask are all background or all
// live: there a byte comes out one less, and 0 stays.
__attribute__((target("ssse3"))) size_t BlendBlocks_SSSE3(const Operands& o, size_t pixels) {
  const __m128i one = _mm_set1_epi8(1);
  size_t pixel = 0;
  for (; pixel + kBlockPixels <= pixels; pixel += kBlockPixels) {
    const uint8_t* background = o.background + pixel * 2;
    const uint8_t* live = o.live + pixel * 2;
    const __m128i alpha = LoadVector_SSE2(o.alpha + pixel);
    // A block may leave either frame out, which loses the processor's track of it.
    _mm_prefetch(reinterpret_cast<const char*>(background + kPrefetchBytes), _MM_HINT_T0);
    _mm_prefetch(reinterpret_cast<const char*>(live + kPrefetchBytes), _MM_HINT_T0);
    const int32_t opaque = _mm_movemask_epi8(_mm_cmpeq_epi8(alpha, _mm_set1_epi8(-1)));
    const int32_t clear = _mm_movemask_epi8(_mm_cmpeq_epi8(alpha, _mm_setzero_si128()));
    __m128i first;
    __m128i second;
    if (opaque == 0xFFFF || clear == 0xFFFF) {
      const uint8_t* shown = opaque != 0 ? background : live;
      first = _mm_subs_epu8(LoadVector_SSE2(shown), one);
      second = _mm_subs_epu8(LoadVector_SSE2(shown + 16), one);
    } else {
      first = BlendVector_SSSE3(LoadVector_SSE2(background), LoadVector_SSE2(live), alpha);
      second = BlendVector_SSSE3(LoadVector_SSE2(background + 16), LoadVector_SSE2(live + 16),
                                 _mm_srli_si128(alpha, 8));
    }
    StoreVector_SSE2(o.output + pixel * 2, first);
    StoreVector_SSE2(o.output + pixel * 2 + 16, second);
  }
  return pixel;
}

}  // namespace

void BlendBackground(uint32_t width, uint32_t height, const uint8_t* background,
                     const uint8_t* live, uint8_t* output) {
  const int32_t count = static_cast<int32_t>(width * height);
  if (count <= 0) return;
  const size_t pixels = static_cast<size_t>(count);
  const Operands operands = {background, background + pixels * 2, live, output};
  size_t done = 0;
  if (AvailableInstructionSet() >= InstructionSet::SSSE3) {
    done = BlendBlocks_SSSE3(operands, pixels);
  }
  BlendPixels_Plain(operands, done, pixels);
}

}  // namespace kolm
