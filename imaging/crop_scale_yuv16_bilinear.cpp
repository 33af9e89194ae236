// Bilinear crop and scale of packed frames.
#include "imaging/crop_scale_yuv16.h"
#include "imaging/fixed_point.h"
#include "imaging/yuv16_sample.h"

namespace kolm {
namespace {

void StorePair(uint8_t* dst, const Yuv16Sample& a, const Yuv16Sample& b) {
  dst[0] = static_cast<uint8_t>(a.y);
  dst[1] = static_cast<uint8_t>((a.u + b.u) >> 1);
  dst[2] = static_cast<uint8_t>(b.y);
  dst[3] = static_cast<uint8_t>((a.v + b.v) >> 1);
}

Yuv16Sample InterpolateSample(const Yuv16Sample& from, const Yuv16Sample& to, int32_t fraction) {
  return {Interpolate(from.y, to.y, fraction), Interpolate(from.u, to.u, fraction),
          Interpolate(from.v, to.v, fraction)};
}

Yuv16Sample Average(const Yuv16Sample& a, const Yuv16Sample& b) {
  return {(a.y + b.y) >> 1, (a.u + b.u) >> 1, (a.v + b.v) >> 1};
}

Yuv16Sample InterpolateAt(const uint8_t* top, const uint8_t* bottom, int32_t x, int32_t fractionY) {
  const int32_t fractionX = x & 0xFFFF;
  const int32_t left = x >> 16;
  const int32_t right = NextSample(x);
  const Yuv16Sample t =
      InterpolateSample(SampleYuv16(top, left), SampleYuv16(top, right), fractionX);
  const Yuv16Sample b =
      InterpolateSample(SampleYuv16(bottom, left), SampleYuv16(bottom, right), fractionX);
  return InterpolateSample(t, b, fractionY);
}

void InterpolatePairs_Plain(const uint8_t* top, const uint8_t* bottom, uint8_t* dst, int32_t pairs,
                            int32_t x, int32_t stepX, int32_t fractionY) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = InterpolateAt(top, bottom, x, fractionY);
    x = Advance(x, stepX);
    StorePair(dst + 4 * ptrdiff_t{pair}, a, InterpolateAt(top, bottom, x, fractionY));
    x = Advance(x, stepX);
  }
}

// The right edge of an interpolated row: no right neighbour is left to weight.
void AverageDownPairs(const uint8_t* top, const uint8_t* bottom, uint8_t* dst, int32_t pairs,
                      int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = Average(SampleYuv16(top, x >> 16), SampleYuv16(bottom, x >> 16));
    x = Advance(x, stepX);
    const Yuv16Sample b = Average(SampleYuv16(top, x >> 16), SampleYuv16(bottom, x >> 16));
    StorePair(dst + 4 * ptrdiff_t{pair}, a, b);
    x = Advance(x, stepX);
  }
}

// A bottom row: no lower neighbour is left to weight.
void AverageAcrossPairs(const uint8_t* row, uint8_t* dst, int32_t pairs, int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = Average(SampleYuv16(row, x >> 16), SampleYuv16(row, NextSample(x)));
    x = Advance(x, stepX);
    const Yuv16Sample b = Average(SampleYuv16(row, x >> 16), SampleYuv16(row, NextSample(x)));
    StorePair(dst + 4 * ptrdiff_t{pair}, a, b);
    x = Advance(x, stepX);
  }
}

void NearestPairs(const uint8_t* row, uint8_t* dst, int32_t pairs, int32_t x, int32_t stepX) {
  for (int32_t pair = 0; pair < pairs; ++pair) {
    const Yuv16Sample a = SampleYuv16(row, x >> 16);
    x = Advance(x, stepX);
    StorePair(dst + 4 * ptrdiff_t{pair}, a, SampleYuv16(row, x >> 16));
    x = Advance(x, stepX);
  }
}

// How many pairs stand before the last two of `columns` columns.
int32_t PairsBeforeEdge(int32_t columns) { return columns > 2 ? (columns - 3) / 2 + 1 : 0; }

int32_t Smaller(int32_t a, int32_t b) { return a < b ? a : b; }

}  // namespace

void CropScaleYUV16Bilinear(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                            int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                            int32_t cropWidth, int32_t cropHeight) {
  if (dstWidth <= 0 || dstHeight <= 0) return;
  const int32_t stepX = FixedPoint(cropWidth) / dstWidth;
  const int32_t stepY = FixedPoint(cropHeight) / dstHeight;
  if (stepX == 0 || stepY == 0) return;

  // Columns and rows whose right and lower neighbours lie inside the source.
  const int32_t innerCols = Smaller(
      (Advance(FixedPoint(srcWidth - cropX), -0x10000) / stepX) & ~1, dstWidth);
  const int32_t innerRows =
      Smaller(Advance(FixedPoint(srcHeight - cropY), -0x10000) / stepY - 1, dstHeight);
  const int32_t pairs = (dstWidth - 1) / 2 + 1;
  const int32_t interpolatedPairs = PairsBeforeEdge(innerCols);
  const int32_t averagedPairs = PairsBeforeEdge(dstWidth);
  const int32_t x = FixedPoint(cropX);
  const int32_t xEdge = Advance(x, stepX, 2 * interpolatedPairs);
  const int32_t xLast = Advance(x, stepX, 2 * averagedPairs);

  int32_t y = FixedPoint(cropY);
  for (int32_t row = 0; row < dstHeight; ++row) {
    const uint8_t* top = src + ptrdiff_t{y >> 16} * srcWidth * 2;
    if (row < innerRows) {
      const uint8_t* bottom = src + ptrdiff_t{NextSample(y)} * srcWidth * 2;
      InterpolatePairs_Plain(top, bottom, dst, interpolatedPairs, x, stepX, y & 0xFFFF);
      AverageDownPairs(top, bottom, dst + 4 * ptrdiff_t{interpolatedPairs},
                       pairs - interpolatedPairs, xEdge, stepX);
    } else {
      AverageAcrossPairs(top, dst, averagedPairs, x, stepX);
      NearestPairs(top, dst + 4 * ptrdiff_t{averagedPairs}, pairs - averagedPairs, xLast, stepX);
    }
    dst += 4 * ptrdiff_t{pairs};
    y = Advance(y, stepY);
  }
}

}  // namespace kolm
