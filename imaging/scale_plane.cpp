// Bilinear scaling of an 8-bit plane.
#include "imaging/scale_plane.h"

#include <stddef.h>

#include "imaging/fixed_point.h"

namespace kolm {
namespace {

void InterpolateColumns_Plain(const uint8_t* top, const uint8_t* bottom, uint8_t* dst,
                              int32_t columns, int32_t x, int32_t stepX, int32_t fractionY) {
  for (int32_t column = 0; column < columns; ++column) {
    const int32_t left = x >> 16;
    const int32_t right = NextSample(x);
    const int32_t t = Interpolate(top[left], top[right], x & 0xFFFF);
    const int32_t b = Interpolate(bottom[left], bottom[right], x & 0xFFFF);
    dst[column] = static_cast<uint8_t>(Interpolate(t, b, fractionY));
    x = Advance(x, stepX);
  }
}

}  // namespace

void ScalePlaneBilinear(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                        int32_t dstWidth, int32_t dstHeight) {
  if (dstWidth <= 0 || dstHeight <= 0) return;
  const int32_t stepX = FixedPoint(srcWidth) / dstWidth;
  const int32_t stepY = FixedPoint(srcHeight) / dstHeight;
  const int32_t lastColumn = Advance(0, stepX, dstWidth - 1) >> 16;

  int32_t y = 0;
  for (int32_t row = 0; row < dstHeight - 1; ++row) {
    const uint8_t* top = src + ptrdiff_t{y >> 16} * srcWidth;
    const uint8_t* bottom = src + ptrdiff_t{NextSample(y)} * srcWidth;
    InterpolateColumns_Plain(top, bottom, dst, dstWidth - 1, 0, stepX, y & 0xFFFF);
    dst[dstWidth - 1] = top[lastColumn];
    dst += dstWidth;
    y = Advance(y, stepY);
  }

  const uint8_t* last = src + ptrdiff_t{y >> 16} * srcWidth;
  int32_t x = 0;
  for (int32_t column = 0; column < dstWidth; ++column) {
    dst[column] = last[x >> 16];
    x = Advance(x, stepX);
  }
}

}  // namespace kolm
