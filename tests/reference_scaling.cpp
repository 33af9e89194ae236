// Positions are 64-bit here: within the sizes that the kernels take they are the same numbers. Only
// where any rectangle is taken they are cut down to 32 bits.
#include "tests/reference_scaling.h"

#include <algorithm>

namespace kolm::reference {
namespace {

constexpr int64_t kOne = 0x10000;

struct Sample {
  int64_t y, u, v;
};

Sample SampleAt(const Bytes& source, int64_t rowStart, int64_t column) {
  const int64_t luma = rowStart + 2 * column;
  if (column % 2 == 1) return {source.at(luma), source.at(luma - 1), source.at(luma + 1)};
  return {source.at(luma), source.at(luma + 1), source.at(luma + 3)};
}

Sample FloorMean(const Sample& a, const Sample& b) {
  return {(a.y + b.y) >> 1, (a.u + b.u) >> 1, (a.v + b.v) >> 1};
}

int64_t Between(int64_t from, int64_t to, int64_t fraction) {
  return (((to - from) * fraction) >> 16) + from;
}

Sample Between(const Sample& from, const Sample& to, int64_t fraction) {
  return {Between(from.y, to.y, fraction), Between(from.u, to.u, fraction),
          Between(from.v, to.v, fraction)};
}

void AppendPair(Bytes& out, const Sample& a, const Sample& b) {
  out.push_back(static_cast<uint8_t>(a.y));
  out.push_back(static_cast<uint8_t>((a.u + b.u) >> 1));
  out.push_back(static_cast<uint8_t>(b.y));
  out.push_back(static_cast<uint8_t>((a.v + b.v) >> 1));
}

int64_t Step(int64_t from, int64_t to) { return from * kOne / to; }

uint8_t ByteInside(const Bytes& frame, int64_t width, int64_t height, int64_t row, int64_t byte) {
  const auto size = static_cast<int64_t>(frame.size());
  const auto isInside = [size](int64_t at) { return at >= 0 && at < size; };
  const int64_t plain = row * width * 2 + byte;
  if (isInside(plain)) return frame[plain];
  const int64_t nearest = std::clamp<int64_t>(row, 0, height - 1) * width * 2 + byte;
  if (isInside(nearest)) return frame[nearest];
  return frame.at((nearest < 0 ? 0 : size - 4) + (byte & 3));
}

}  // namespace

Bytes CropScaleYuv16(const Bytes& source, int32_t srcWidth, int32_t dstWidth, int32_t dstHeight,
                     Crop crop) {
  Bytes out;
  if (dstWidth <= 0 || dstHeight <= 0) return out;
  const int64_t stepX = Step(crop.width, dstWidth);
  const int64_t stepY = Step(crop.height, dstHeight);
  for (int64_t row = 0; row < dstHeight; ++row) {
    const int64_t y = crop.y * kOne + row * stepY;
    const int64_t rowStart = (y >> 16) * srcWidth * 2;
    for (int64_t column = 0; column < dstWidth; column += 2) {
      const int64_t x = crop.x * kOne + column * stepX;
      AppendPair(out, SampleAt(source, rowStart, x >> 16),
                 SampleAt(source, rowStart, (x + stepX) >> 16));
    }
  }
  return out;
}

Bytes CropScaleYuv16Inside(const Bytes& source, int32_t srcWidth, int32_t srcHeight,
                           int32_t dstWidth, int32_t dstHeight, Crop crop) {
  Bytes out;
  const auto cut = [](int64_t position) { return static_cast<int32_t>(position); };
  const int64_t stepX = cut(crop.width * kOne) / dstWidth;
  const int64_t stepY = cut(crop.height * kOne) / dstHeight;
  for (int64_t j = 0; j < dstHeight; ++j) {
    const int64_t row = cut(crop.y * kOne + j * stepY) >> 16;
    const auto sample = [&](int64_t i) {
      const int64_t column = cut(crop.x * kOne + i * stepX) >> 16;
      const int64_t pair = (column & ~1) * 2;
      const auto byte = [&](int64_t at) {
        return ByteInside(source, srcWidth, srcHeight, row, at);
      };
      return Sample{byte(column * 2), byte(pair + 1), byte(pair + 3)};
    };
    for (int64_t i = 0; i < dstWidth; i += 2) AppendPair(out, sample(i), sample(i + 1));
  }
  return out;
}

Bytes CropScaleYuv16Bilinear(const Bytes& source, int32_t srcWidth, int32_t srcHeight,
                             int32_t dstWidth, int32_t dstHeight, Crop crop) {
  Bytes out;
  if (dstWidth <= 0 || dstHeight <= 0) return out;
  const int64_t stepX = Step(crop.width, dstWidth);
  const int64_t stepY = Step(crop.height, dstHeight);
  const int64_t innerColumns =
      std::min<int64_t>(((srcWidth - crop.x) * kOne - kOne) / stepX / 2 * 2, dstWidth);
  const int64_t innerRows =
      std::min<int64_t>(((srcHeight - crop.y) * kOne - kOne) / stepY - 1, dstHeight);

  for (int64_t row = 0; row < dstHeight; ++row) {
    const int64_t y = crop.y * kOne + row * stepY;
    const int64_t top = (y >> 16) * srcWidth * 2;
    const int64_t bottom = ((y + kOne) >> 16) * srcWidth * 2;

    const auto weighted = [&](int64_t x) {
      const int64_t left = x >> 16, right = (x + kOne) >> 16, fraction = x & 0xFFFF;
      const Sample t = Between(SampleAt(source, top, left), SampleAt(source, top, right), fraction);
      const Sample b =
          Between(SampleAt(source, bottom, left), SampleAt(source, bottom, right), fraction);
      return Between(t, b, y & 0xFFFF);
    };
    const auto verticalMean = [&](int64_t x) {
      return FloorMean(SampleAt(source, top, x >> 16), SampleAt(source, bottom, x >> 16));
    };
    const auto horizontalMean = [&](int64_t x) {
      return FloorMean(SampleAt(source, top, x >> 16), SampleAt(source, top, (x + kOne) >> 16));
    };
    const auto nearest = [&](int64_t x) { return SampleAt(source, top, x >> 16); };

    for (int64_t column = 0; column < dstWidth; column += 2) {
      const int64_t x = crop.x * kOne + column * stepX;
      if (row < innerRows) {
        if (column < innerColumns - 2) {
          AppendPair(out, weighted(x), weighted(x + stepX));
        } else {
          AppendPair(out, verticalMean(x), verticalMean(x + stepX));
        }
      } else if (column < dstWidth - 2) {
        AppendPair(out, horizontalMean(x), horizontalMean(x + stepX));
      } else {
        AppendPair(out, nearest(x), nearest(x + stepX));
      }
    }
  }
  return out;
}

Bytes ScalePlaneBilinear(const Bytes& source, int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                         int32_t dstHeight) {
  Bytes out;
  if (dstWidth <= 0 || dstHeight <= 0) return out;
  const int64_t stepX = Step(srcWidth, dstWidth);
  const int64_t stepY = Step(srcHeight, dstHeight);
  for (int64_t row = 0; row < dstHeight; ++row) {
    const int64_t y = row * stepY;
    const int64_t top = (y >> 16) * srcWidth;
    const int64_t bottom = ((y + kOne) >> 16) * srcWidth;
    for (int64_t column = 0; column < dstWidth; ++column) {
      const int64_t x = column * stepX;
      const int64_t left = x >> 16, right = (x + kOne) >> 16, fraction = x & 0xFFFF;
      if (row == dstHeight - 1 || column == dstWidth - 1) {
        out.push_back(source.at(top + left));
        continue;
      }
      const int64_t t = Between(source.at(top + left), source.at(top + right), fraction);
      const int64_t b = Between(source.at(bottom + left), source.at(bottom + right), fraction);
      out.push_back(static_cast<uint8_t>(Between(t, b, y & 0xFFFF)));
    }
  }
  return out;
}

}  // namespace kolm::reference
