// The scaling kernels once more, one sample at a time, to compare the module's against.
#pragma once

#include <cstdint>
#include <vector>

namespace kolm::reference {

using Bytes = std::vector<uint8_t>;

struct Crop {
  int32_t x, y, width, height;
};

// `source` holds the frame and whatever bytes behind it may be read; a read behind those throws.
Bytes CropScaleYuv16(const Bytes& source, int32_t srcWidth, int32_t dstWidth, int32_t dstHeight,
                     Crop crop);
// Any rectangle and any positive source size of two pixels or more: `source` is the frame alone.
Bytes CropScaleYuv16Inside(const Bytes& source, int32_t srcWidth, int32_t srcHeight,
                           int32_t dstWidth, int32_t dstHeight, Crop crop);
Bytes CropScaleYuv16Bilinear(const Bytes& source, int32_t srcWidth, int32_t srcHeight,
                             int32_t dstWidth, int32_t dstHeight, Crop crop);
Bytes ScalePlaneBilinear(const Bytes& source, int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                         int32_t dstHeight);

}  // namespace kolm::reference
