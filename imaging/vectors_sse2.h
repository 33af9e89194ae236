// 16 bytes of memory at any address.
#pragma once

#include <emmintrin.h>

namespace kolm {

inline __m128i LoadVector_SSE2(const void* bytes) {
  return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

inline void StoreVector_SSE2(void* bytes, __m128i value) {
  _mm_storeu_si128(static_cast<__m128i*>(bytes), value);
}

}  // namespace kolm
