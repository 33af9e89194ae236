// A record brought to the frame's size.
#include "background/background.h"
#include "imaging/crop_scale_yuv16.h"
#include "imaging/scale_plane.h"

namespace kolm {

void ScaleBackground(const uint8_t* record, uint8_t* destination, uint32_t width, int32_t height) {
  // The alpha plane's place is a positive 32-bit number. A frame of one column would not hold the
  // pixel pairs that the scaler writes.
  const int64_t alphaOffset = int64_t{width} * height * 2;
  if (width < 2 || height <= 0 || alphaOffset > INT32_MAX) return;
  const int32_t columns = static_cast<int32_t>(width);
  CropScaleYUV16Bilinear(record, KOLM_BACKGROUND_WIDTH, KOLM_BACKGROUND_HEIGHT, destination,
                         columns, height, 0, 0, KOLM_BACKGROUND_WIDTH, KOLM_BACKGROUND_HEIGHT);
  ScalePlaneBilinear(record + offsetof(BackgroundRecord, alpha), KOLM_BACKGROUND_WIDTH,
                     KOLM_BACKGROUND_HEIGHT, destination + alphaOffset, columns, height);
}

}  // namespace kolm
