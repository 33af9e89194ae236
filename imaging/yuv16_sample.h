// One pixel of a packed 4:2:2 row.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace kolm {

struct Yuv16Sample {
  int32_t y, u, v;
};

// The pixel at `column` of the row that starts at `row`, with the chroma of its pair: an even
// column's V is 3 bytes behind its luma, an odd column's U one byte before it.
inline Yuv16Sample SampleYuv16(const uint8_t* row, int32_t column) {
  const uint8_t* pair = row + ptrdiff_t{column & ~1} * 2;
  return {pair[(column & 1) * 2], pair[1], pair[3]};
}

}  // namespace kolm
