// Grayscale, sepia, negative and posterize.
#include "effects/tone_effects.h"

#include <tmmintrin.h>

#include "effects/frame.h"
#include "imaging/vectors_sse2.h"
#include "platform/instruction_set.h"

namespace kolm {
namespace {

// Pixel pairs of a frame in 32-bit arithmetic: an odd pixel count rounds up to a whole pair.
size_t PixelPairs(uint32_t width, uint32_t height) {
  const uint32_t pixels = width * height;
  return pixels == 0 ? 0 : size_t{(pixels - 1) / 2} + 1;
}

// Maps each byte of a pixel pair by three constants: ((byte & keep) ^ flip) + add, modulo 256.
struct PairMap {
  uint8_t keep[4];
  uint8_t flip[4];
  uint8_t add[4];
};

void MapPairs_Plain(const uint8_t* source, uint8_t* destination, size_t pairs, const PairMap& map) {
  for (size_t i = 0; i < pairs * 4; ++i) {
    const uint32_t kept = (source[i] & map.keep[i % 4]) ^ map.flip[i % 4];
    destination[i] = static_cast<uint8_t>(kept + map.add[i % 4]);
  }
}

__m128i FourTimes(const uint8_t (&bytes)[4]) {
  int32_t word;
  __builtin_memcpy(&word, bytes, sizeof word);
  return _mm_set1_epi32(word);
}

void MapPairs_SSE2(const uint8_t* source, uint8_t* destination, size_t pairs, const PairMap& map) {
  const __m128i keep = FourTimes(map.keep);
  const __m128i flip = FourTimes(map.flip);
  const __m128i add = FourTimes(map.add);
  size_t pair = 0;
  constexpr size_t kBlockPairs = 16;
  for (; pair + kBlockPairs <= pairs; pair += kBlockPairs) {
    const __m128i* from = reinterpret_cast<const __m128i*>(source + pair * 4);
    __m128i* to = reinterpret_cast<__m128i*>(destination + pair * 4);
    __m128i values[4];
    for (size_t i = 0; i < 4; ++i) values[i] = _mm_loadu_si128(from + i);
    for (size_t i = 0; i < 4; ++i) {
      const __m128i kept = _mm_xor_si128(_mm_and_si128(values[i], keep), flip);
      _mm_storeu_si128(to + i, _mm_add_epi8(kept, add));
    }
  }
  MapPairs_Plain(source + pair * 4, destination + pair * 4, pairs - pair, map);
}

void MapPairs(const uint8_t* source, uint8_t* destination, size_t pairs, const PairMap& map) {
  if (AvailableInstructionSet() < InstructionSet::SSE2) {
    MapPairs_Plain(source, destination, pairs, map);
  } else {
    MapPairs_SSE2(source, destination, pairs, map);
  }
}

constexpr uint8_t kLowestLevel = 16;
constexpr uint8_t kHighestLuma = 235;
constexpr uint8_t kHighestChroma = 240;

// The byte that stands for a level. The inner levels reach outside the video range (13 at 20
// levels): only the ends are fitted to it.
uint8_t ByteOfLevel(uint32_t level, uint32_t levels, uint8_t highest) {
  if (level == 0) return kLowestLevel;
  if (level + 1 >= levels) return highest;
  return static_cast<uint8_t>(level * 255 / (levels - 1));
}

void PosterizePairs_Plain(const uint8_t* source, uint8_t* destination, size_t pairs,
                          uint32_t levels) {
  uint8_t luma[256];
  uint8_t chroma[256];
  for (uint32_t value = 0; value < 256; ++value) {
    luma[value] = ByteOfLevel(value * levels / 255, levels, kHighestLuma);
    chroma[value] = ByteOfLevel(value * levels / 255, levels, kHighestChroma);
  }
  for (size_t i = 0; i < pairs * 4; i += 2) {
    destination[i] = luma[source[i]];
    destination[i + 1] = chroma[source[i + 1]];
  }
}

// `high` tells whether there are levels from 16 on, which a second shuffle serves; `levels` itself,
// which the value 255 gives, is one of them. `levels` is not 0.
template <bool high>
__attribute__((target("ssse3"))) void PosterizePairs_SSSE3(const uint8_t* source,
                                                           uint8_t* destination, size_t pairs,
                                                           uint32_t levels) {
  // Luma's bytes of levels 0 to 31; a value of 255 gives the level `levels`, the highest again.
  alignas(16) uint8_t bytes[32];
  for (uint32_t level = 0; level < sizeof bytes; ++level) {
    bytes[level] = ByteOfLevel(level, levels, kHighestLuma);
  }
  const __m128i lowBytes = LoadVector_SSE2(bytes);
  const __m128i highBytes = _mm_load_si128(reinterpret_cast<const __m128i*>(bytes) + 1);
  // value * levels / 255 is the high half of value * (257 * levels + 1), exactly, for up to 255
  // levels. Chroma stands in the high bytes, so that its level comes out there.
  const __m128i factor = _mm_set1_epi16(static_cast<int16_t>(257 * levels + 1));
  const __m128i highMask = _mm_set1_epi16(static_cast<int16_t>(0xFF00));
  const __m128i lowMask = _mm_set1_epi16(0x00FF);
  const __m128i belowHighest = _mm_set1_epi8(static_cast<char>(levels - 2));
  const __m128i chromaExcess = _mm_set1_epi16((kHighestChroma - kHighestLuma) << 8);
  const auto map = [=](__m128i value) __attribute__((target("ssse3"), always_inline)) {
    const __m128i luma = _mm_mulhi_epu16(_mm_and_si128(value, lowMask), factor);
    const __m128i chroma = _mm_mulhi_epu16(_mm_and_si128(value, highMask), factor);
    const __m128i level = _mm_or_si128(luma, _mm_and_si128(chroma, highMask));
    __m128i result;
    if constexpr (high) {
      // A shuffle index gives 0 from 128 on and counts modulo 16 below.
      result = _mm_or_si128(_mm_shuffle_epi8(lowBytes, _mm_add_epi8(level, _mm_set1_epi8(112))),
                            _mm_shuffle_epi8(highBytes, _mm_sub_epi8(level, _mm_set1_epi8(16))));
    } else {
      result = _mm_shuffle_epi8(lowBytes, level);
    }
    const __m128i highest = _mm_cmpgt_epi8(level, belowHighest);
    return _mm_add_epi8(result, _mm_and_si128(highest, chromaExcess));
  };
  size_t pair = 0;
  for (; pair + 4 <= pairs; pair += 4) {
    const __m128i value = LoadVector_SSE2(source + pair * 4);
    StoreVector_SSE2(destination + pair * 4, map(value));
  }
  for (; pair < pairs; ++pair) {
    uint32_t word;
    __builtin_memcpy(&word, source + pair * 4, sizeof word);
    word = static_cast<uint32_t>(
        _mm_cvtsi128_si32(map(_mm_cvtsi32_si128(static_cast<int32_t>(word)))));
    __builtin_memcpy(destination + pair * 4, &word, sizeof word);
  }
}

}  // namespace

void Grayscale(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
               uint32_t /*parameter*/) {
  constexpr PairMap kMap = {.keep = {255, 0, 255, 0}, .flip = {}, .add = {0, 128, 0, 128}};
  const uint32_t pixels = width * height;
  MapPairs(source, destination, pixels / 2, kMap);
  // It writes single pixels, unlike the others: nothing beyond an odd last one.
  if (pixels % 2 != 0) {
    const size_t last = size_t{pixels - 1} * 2;
    destination[last] = source[last];
    destination[last + 1] = 128;
  }
}

void Sepia(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
           uint32_t /*parameter*/) {
  constexpr PairMap kMap = {.keep = {255, 0, 255, 0}, .flip = {}, .add = {0, 96, 0, 150}};
  MapPairs(source, destination, PixelPairs(width, height), kMap);
}

void Negative(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
              uint32_t /*parameter*/) {
  // Complement for luma, two's complement for chroma.
  constexpr PairMap kMap = {
      .keep = {255, 255, 255, 255}, .flip = {255, 255, 255, 255}, .add = {0, 1, 0, 1}};
  MapPairs(source, destination, PixelPairs(width, height), kMap);
}

void Posterize(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
               uint32_t parameter) {
  if (parameter == 0 || parameter > 11) {
    CopyFrame(source, destination, width, height);
    return;
  }
  const size_t pairs = PixelPairs(width, height);
  const uint32_t levels = 2 * (11 - parameter);
  if (levels == 0 || AvailableInstructionSet() < InstructionSet::SSSE3) {
    PosterizePairs_Plain(source, destination, pairs, levels);
  } else if (levels < 16) {
    PosterizePairs_SSSE3<false>(source, destination, pairs, levels);
  } else {
    PosterizePairs_SSSE3<true>(source, destination, pairs, levels);
  }
}

}  // namespace kolm
