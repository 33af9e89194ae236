// Nearest-sample crop and scale.
#include "imaging/crop_scale_yuv16.h"

#include "imaging/fixed_point.h"
#include "imaging/yuv16_sample.h"

namespace kolm {
namespace {

void SampleRow_Plain(const uint8_t* row, uint8_t* dst, int32_t pairs, int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = SampleYuv16(row, x >> 16);
    x = Advance(x, stepX);
    const Yuv16Sample b = SampleYuv16(row, x >> 16);
    x = Advance(x, stepX);
    dst[0] = static_cast<uint8_t>(a.y);
    dst[1] = static_cast<uint8_t>((a.u + b.u) >> 1);
    dst[2] = static_cast<uint8_t>(b.y);
    dst[3] = static_cast<uint8_t>((a.v + b.v) >> 1);
    dst += 4;
  }
}

}  // namespace

void CropScaleYUV16ToRows(const uint8_t* src, int32_t srcWidth, int32_t /*srcHeight*/, uint8_t* dst,
                          size_t dstStride, int32_t dstWidth, int32_t dstHeight, int32_t cropX,
                          int32_t cropY, int32_t cropWidth, int32_t cropHeight) {
  if (dstWidth <= 0 || dstHeight <= 0) return;
  const int32_t stepX = FixedPoint(cropWidth) / dstWidth;
  const int32_t stepY = FixedPoint(cropHeight) / dstHeight;
  const int32_t pairs = (dstWidth - 1) / 2 + 1;
  int32_t y = FixedPoint(cropY);
  for (int32_t row = 0; row < dstHeight; ++row) {
    const uint8_t* srcRow = src + ptrdiff_t{y >> 16} * srcWidth * 2;
    SampleRow_Plain(srcRow, dst, pairs, FixedPoint(cropX), stepX);
    dst += dstStride;
    y = Advance(y, stepY);
  }
}

void CropScaleYUV16(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                    int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                    int32_t cropWidth, int32_t cropHeight) {
  const size_t stride = dstWidth <= 0 ? 0 : size_t{4} * ((static_cast<size_t>(dstWidth) + 1) / 2);
  CropScaleYUV16ToRows(src, srcWidth, srcHeight, dst, stride, dstWidth, dstHeight, cropX, cropY,
                       cropWidth, cropHeight);
}

}  // namespace kolm
