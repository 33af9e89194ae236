// Scales a plane of 8-bit samples, in 16.16 fixed point.
#pragma once

#include <stdint.h>

namespace kolm {

// Bilinear, but for the last row and the last column, which repeat the nearest source sample.
// Rows are exactly srcWidth and dstWidth bytes; source sizes are 1 to 32767. When it enlarges,
// columns and rows just before the last may read one sample past the source's last column or row:
// up to srcWidth + 1 bytes behind the plane must be readable. A destination size of 0 or below
// writes nothing. Level: any.
void ScalePlaneBilinear(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                        int32_t dstWidth, int32_t dstHeight);

}  // namespace kolm
