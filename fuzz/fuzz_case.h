// What the fuzz targets share: sizes and pictures made of the input, exactly sized heap blocks, and
// the run of a kernel in each of its forms.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/host/instruction_set.h"

namespace kolm::fuzz {

struct Size {
  int32_t width;
  int32_t height;
};

// Sides of 1 to 300; at times tiny ones from `smallest` on, or one side of up to `longest`.
inline Size PickSize(FuzzedDataProvider& input, int32_t smallest, int32_t longest) {
  const auto side = [&](int32_t least, int32_t largest) {
    return input.ConsumeIntegralInRange<int32_t>(least, largest);
  };
  switch (input.ConsumeIntegralInRange<int>(0, 15)) {
    case 1:
      return {side(1, longest), side(1, 4)};
    case 2:
      return {side(1, 4), side(1, longest)};
    case 3:
      return {side(smallest, 8), side(smallest, 8)};
    default:
      return {side(1, 300), side(1, 300)};
  }
}

// A heap block that ends with its last byte, never null. Its start moves away from the allocator's
// alignment in some cases; the sanitizer then sees accesses before it only from there on.
class Block {
 public:
  Block(size_t bytes, size_t misalignment)
      : bytes_(bytes), misalignment_(misalignment), all_(new uint8_t[misalignment + bytes]) {}
  uint8_t* data() { return all_.get() + misalignment_; }
  size_t size() const { return bytes_; }

 private:
  size_t bytes_;
  size_t misalignment_;
  std::unique_ptr<uint8_t[]> all_;
};

inline size_t PickMisalignment(FuzzedDataProvider& input) {
  return input.ConsumeBool() ? input.ConsumeIntegralInRange<size_t>(1, 15) : 0;
}

// Fills a picture with what is left of the input, over and over, each round raised by a step.
inline void FillPicture(FuzzedDataProvider& input, Block& picture) {
  const auto step = input.ConsumeIntegral<uint8_t>();
  std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
  if (bytes.empty()) bytes.push_back(128);
  for (size_t i = 0; i < picture.size(); ++i) {
    picture.data()[i] = static_cast<uint8_t>(bytes[i % bytes.size()] + i / bytes.size() * step);
  }
}

// Calls run(destination) in the plain form and in each vector form that this machine has. The first
// `written` bytes of the destination start differently each time, so that a byte which is left out
// shows as a difference; the others must stay alike. Aborts on a difference.
template <typename Run>
void CompareForms(size_t destinationBytes, size_t written, size_t misalignment, Run run) {
  Block plain(destinationBytes, misalignment);
  std::memset(plain.data(), 0x5A, destinationBytes);
  kolm::host::ForceInstructionSet(InstructionSet::Plain);
  run(plain.data());
  const auto best = static_cast<uint32_t>(kolm::host::BestInstructionSet());
  for (uint32_t set = static_cast<uint32_t>(InstructionSet::SSE2); set <= best; ++set) {
    Block vector(destinationBytes, misalignment);
    std::memset(vector.data(), 0x5A, destinationBytes);
    std::memset(vector.data(), 0xA5, written);
    kolm::host::ForceInstructionSet(static_cast<InstructionSet>(set));
    run(vector.data());
    const uint8_t* begin = plain.data();
    const uint8_t* end = begin + destinationBytes;
    const auto [expected, got] = std::mismatch(begin, end, vector.data());
    if (expected == end) continue;
    std::fprintf(stderr, "instruction set %u: byte %td of %zu is %d, the plain form's %d\n", set,
                 expected - begin, destinationBytes, *got, *expected);
    std::abort();
  }
}

}  // namespace kolm::fuzz
