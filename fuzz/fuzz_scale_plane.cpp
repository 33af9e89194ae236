// The plane scaler from any size to any size.
#include "fuzz/fuzz_case.h"
#include "imaging/scale_plane.h"

using namespace kolm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const fuzz::Size from = fuzz::PickSize(input, 1, 32767);
  const fuzz::Size to = fuzz::PickSize(input, -1, 32767);
  // Enlarging reads the row below the last one, the column right of the last one, or both.
  const size_t sourceBytes = size_t{1} * from.width * from.height +
                             (to.height > from.height ? from.width : 0) +
                             (to.width > from.width ? 1 : 0);
  const size_t destinationBytes =
      to.width > 0 && to.height > 0 ? size_t{1} * to.width * to.height : 0;

  fuzz::Block source(sourceBytes, fuzz::PickMisalignment(input));
  const size_t misalignment = fuzz::PickMisalignment(input);
  fuzz::FillPicture(input, source);
  fuzz::CompareForms(destinationBytes, destinationBytes, misalignment, [&](uint8_t* destination) {
    ScalePlaneBilinear(source.data(), from.width, from.height, destination, to.width, to.height);
  });
  return 0;
}
