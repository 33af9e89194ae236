// Any effect with any parameter over a picture of any size.
#include "effects/effect_table.h"
#include "fuzz/fuzz_case.h"
#include "platform/host/host_kernel.h"

using namespace kolm;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto id = input.ConsumeIntegralInRange<uint32_t>(KOLM_EFFECT_FIRST, KOLM_EFFECT_LAST);
  const uint32_t parameter = input.ConsumeIntegralInRange<int>(0, 7) != 0
                                 ? input.ConsumeIntegralInRange<uint32_t>(0, 12)
                                 : input.ConsumeIntegral<uint32_t>();
  const fuzz::Size frame = fuzz::PickSize(input, 0, 40000);
  const auto width = static_cast<uint32_t>(frame.width);
  const auto height = static_cast<uint32_t>(frame.height);
  const size_t frameBytes = size_t{width} * height * 2;
  const size_t bytes = (frameBytes + 3) / 4 * 4;  // whole pixel pairs

  fuzz::Block source(bytes, fuzz::PickMisalignment(input));
  const size_t misalignment = fuzz::PickMisalignment(input);
  fuzz::FillPicture(input, source);
  const EffectRoutine routine = FindEffectRoutine(id);
  fuzz::CompareForms(bytes, frameBytes, misalignment, [&](uint8_t* destination) {
    routine(source.data(), destination, width, height, parameter);
  });

  const std::string left = host::DescribePoolBlocks();
  if (left.empty()) return 0;
  std::fprintf(stderr, "effect %u left pool blocks:\n%s\n", id, left.c_str());
  std::abort();
}
