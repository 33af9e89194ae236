// Interpolate (imaging/fixed_point.h) for eight 16-bit lanes.
#pragma once

#include <emmintrin.h>

namespace kolm {

// The multiplication takes the 16-bit fraction for a signed number: from one half on it reads
// fraction - 65536, which takes one whole difference too many away.
inline __m128i Interpolate_SSE2(__m128i from, __m128i to, __m128i fraction) {
  const __m128i difference = _mm_sub_epi16(to, from);
  const __m128i missing = _mm_and_si128(difference, _mm_srai_epi16(fraction, 15));
  return _mm_add_epi16(_mm_add_epi16(from, missing), _mm_mulhi_epi16(difference, fraction));
}

}  // namespace kolm
