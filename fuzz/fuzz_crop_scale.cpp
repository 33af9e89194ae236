// Both crop-scales on any rectangle inside any source.
#include "fuzz/fuzz_case.h"
#include "imaging/crop_scale_yuv16.h"

using namespace kolm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const bool bilinear = input.ConsumeBool();
  fuzz::Size from = fuzz::PickSize(input, 1, 32766);
  from.width += from.width % 2;
  const fuzz::Size to = fuzz::PickSize(input, -1, 32767);
  const auto cropX = input.ConsumeIntegralInRange<int32_t>(0, from.width - 1);
  const auto cropY = input.ConsumeIntegralInRange<int32_t>(0, from.height - 1);
  const auto cropWidth = input.ConsumeIntegralInRange<int32_t>(1, from.width - cropX);
  const auto cropHeight = input.ConsumeIntegralInRange<int32_t>(1, from.height - cropY);

  // At the source's right edge two samples may lie one column past it: the bilinear form's right
  // neighbour when it enlarges, and the second pixel of an odd row's last pair.
  const bool pastEdge =
      cropX + cropWidth == from.width && (to.width % 2 != 0 || (bilinear && to.width > cropWidth));
  const size_t sourceBytes = size_t{2} * from.width * from.height + (pastEdge ? 4 : 0);
  size_t destinationBytes = 0;
  if (to.width > 0 && to.height > 0) {
    destinationBytes = size_t{4} * ((to.width + 1) / 2) * to.height;
  }

  fuzz::Block source(sourceBytes, fuzz::PickMisalignment(input));
  const size_t misalignment = fuzz::PickMisalignment(input);
  fuzz::FillPicture(input, source);
  const auto scale = bilinear ? CropScaleYUV16Bilinear : CropScaleYUV16;
  fuzz::CompareForms(destinationBytes, destinationBytes, misalignment, [&](uint8_t* destination) {
    scale(source.data(), from.width, from.height, destination, to.width, to.height, cropX, cropY,
          cropWidth, cropHeight);
  });
  return 0;
}
