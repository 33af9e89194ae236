// Random cases that can be run again: each has a number, from which and the seed it follows.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace kolm {

class Random {
 public:
  Random(uint64_t seed, uint64_t caseNumber) {
    std::seed_seq seeds = {static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32),
                           static_cast<uint32_t>(caseNumber)};
    engine_.seed(seeds);
  }

  uint64_t Bits() { return engine_(); }
  // Both ends included.
  uint32_t Between(uint32_t least, uint32_t most) {
    return least + static_cast<uint32_t>(Bits() % (uint64_t{most} - least + 1));
  }
  bool OneIn(uint32_t count) { return Bits() % count == 0; }
  template <typename Value>
  Value Pick(const std::vector<Value>& values) {
    return values[Bits() % values.size()];
  }

 private:
  std::mt19937_64 engine_;
};

struct Size {
  uint32_t width, height;
};

// Mostly tiny or awkward sizes from 2 x 1 up, everyday ones, a few up to 1920 x 1080 and beyond,
// a few with one side that no 16.16 position holds. Some widths are odd.
Size RandomFrameSize(Random& random);

// Noise, flat, gradients, extremes or a mixture.
std::vector<uint8_t> RandomPicture(Random& random, size_t bytes, size_t rowBytes);

// Sets what a crash in the running case is reported as.
void DescribeCase(const std::string& description);

// Runs `runCase` for the numbers 0 to count - 1 and stops at the first that does not return an
// empty string, with a test failure that says how to repeat it. Environment: KOLM_TEST_SEED repeats
// a run, KOLM_TEST_CASE holds it to one case, KOLM_TEST_CASES multiplies the counts.
void ForEachRandomCase(uint32_t count, const std::function<std::string(Random&)>& runCase);

}  // namespace kolm
