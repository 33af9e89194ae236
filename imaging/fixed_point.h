// 16.16 fixed-point positions: `position >> 16` is the sample, `position & 0xFFFF` the fraction.
#pragma once

#include <stdint.h>

namespace kolm {

// Positions wrap like 32-bit registers; sizes above 32767 overflow them.
inline int32_t FixedPoint(int32_t integer) {
  return static_cast<int32_t>(static_cast<uint32_t>(integer) << 16);
}

inline int32_t Advance(int32_t position, int32_t step) {
  return static_cast<int32_t>(static_cast<uint32_t>(position) + static_cast<uint32_t>(step));
}

// The position `count` steps after `position`.
inline int32_t Advance(int32_t position, int32_t step, int32_t count) {
  return static_cast<int32_t>(static_cast<uint32_t>(position) +
                              static_cast<uint32_t>(step) * static_cast<uint32_t>(count));
}

// The sample right of or below the one at `position`.
inline int32_t NextSample(int32_t position) { return Advance(position, 0x10000) >> 16; }

// from + (to - from) * fraction / 65536 with the product's quotient rounded down; fraction is 0 to
// 65535. The result lies between from and to.
inline int32_t Interpolate(int32_t from, int32_t to, int32_t fraction) {
  return (((to - from) * fraction) >> 16) + from;
}

}  // namespace kolm
