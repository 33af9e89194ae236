// Every effect against its reference, byte for byte, on random frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "effects/effect_table.h"
#include "platform/host/host_kernel.h"
#include "tests/guarded_run.h"
#include "tests/random_case.h"
#include "tests/reference_effects.h"

namespace kolm {
namespace {

using reference::Bytes;

// Byte sums that the reference of the blur may take for a whole frame.
constexpr uint64_t kAffordableBlur = 6'000'000;

uint32_t RandomParameter(Random& random, uint32_t id) {
  uint32_t minimum = 0, maximum = 0;
  FindParameterRange(id, &minimum, &maximum);
  const uint32_t kind = random.Between(0, 99);
  if (kind < 70) return random.Between(minimum, maximum);
  if (kind < 90) return random.Between(0, 40);
  if (kind < 93) return random.Between(0, 700);
  return random.Pick<uint32_t>({maximum + 1, 0x3FFFFFFF, 0x40000000, 0x40000001, 0x7FFFFFFF,
                                0x80000000, 0x80000001, 0xC0000001, 0xFFFFFFFE, 0xFFFFFFFF,
                                static_cast<uint32_t>(random.Bits())});
}

// A blur too large to take every window sum of: some pixel pairs of it.
std::string CompareBlurredPairs(Random& random, const Bytes& source, Size size, uint32_t parameter,
                                const Work& work) {
  struct Pair {
    size_t offset;
    std::array<uint8_t, 4> bytes;
  };
  const uint64_t side = uint64_t{reference::BlurRadius(size.width, size.height, parameter)} * 2 + 1;
  const uint64_t count = std::clamp<uint64_t>(kAffordableBlur / (side * side * 2), 4, 3000);
  std::vector<Pair> pairs;
  for (uint64_t i = 0; i < count; ++i) {
    uint32_t pair = random.Between(0, size.width / 2 - 1);
    uint32_t row = random.Between(0, size.height - 1);
    if (random.OneIn(4)) pair = random.OneIn(2) ? 0 : size.width / 2 - 1;
    if (random.OneIn(4)) row = random.OneIn(2) ? 0 : size.height - 1;
    pairs.push_back(
        {(size_t{row} * size.width / 2 + pair) * 4,
         reference::BlurredPair(source, size.width, size.height, parameter, pair, row)});
  }
  return RunGuarded(source, source.size(), work, [&](const uint8_t* destination) {
    for (const Pair& pair : pairs) {
      for (size_t i = 0; i < 4; ++i) {
        const uint8_t actual = destination[pair.offset + i];
        if (actual == pair.bytes[i]) continue;
        char text[96];
        std::snprintf(text, sizeof text, "byte %zu is %d instead of %d", pair.offset + i, actual,
                      pair.bytes[i]);
        return std::string(text);
      }
    }
    return std::string();
  });
}

std::string CompareEffect(Random& random, uint32_t id, Size size) {
  const uint32_t parameter = RandomParameter(random, id);
  char description[128];
  std::snprintf(description, sizeof description, "effect %u, %u x %u, parameter %u", id, size.width,
                size.height, parameter);
  DescribeCase(description);

  const size_t frameBytes = size_t{size.width} * size.height * 2;
  const size_t sourceBytes =
      WritesWholePairs(id, parameter) ? (frameBytes + 3) / 4 * 4 : frameBytes;
  const Bytes source = RandomPicture(random, sourceBytes, size_t{size.width} * 2);
  const EffectRoutine routine = FindEffectRoutine(id);
  const Work work = [&](const uint8_t* frame, uint8_t* destination) {
    routine(frame, destination, size.width, size.height, parameter);
  };
  if (id == 5 && size.width % 2 == 0) {
    const uint64_t side =
        uint64_t{reference::BlurRadius(size.width, size.height, parameter)} * 2 + 1;
    if (side * side * size.width * size.height > kAffordableBlur) {
      return CompareBlurredPairs(random, source, size, parameter, work);
    }
  }
  return CompareGuarded(
      source, reference::ApplyEffect(id, source, size.width, size.height, parameter), work);
}

class RandomEffect : public testing::TestWithParam<uint32_t> {};

TEST_P(RandomEffect, EqualsItsReference) {
  ForEachRandomCase(400, [](Random& random) {
    return CompareEffect(random, GetParam(), RandomFrameSize(random));
  });
}

INSTANTIATE_TEST_SUITE_P(Ids, RandomEffect, testing::Range(1u, 19u),
                         [](const auto& info) { return "Effect" + std::to_string(info.param); });

// Work buffers that are one byte too small show here.
class GuardedPool : public testing::TestWithParam<host::PoolGuard> {
 protected:
  void SetUp() override { host::SetPoolGuard(GetParam()); }
  void TearDown() override { host::SetPoolGuard(host::PoolGuard::None); }
};

TEST_P(GuardedPool, BlurStaysInItsWorkBuffers) {
  ForEachRandomCase(150, [](Random& random) {
    const Size size = {random.Between(1, 60) * 2, random.Between(1, 60)};
    return CompareEffect(random, 5, size);
  });
}

TEST_P(GuardedPool, EveryEffectStaysInItsWorkBuffers) {
  ForEachRandomCase(150, [](Random& random) {
    const Size size = {random.Between(1, 200) * 2, random.Between(1, 100)};
    return CompareEffect(random, random.Between(1, 18), size);
  });
}

INSTANTIATE_TEST_SUITE_P(Placements, GuardedPool,
                         testing::Values(host::PoolGuard::Behind, host::PoolGuard::Before),
                         [](const auto& info) {
                           return info.param == host::PoolGuard::Behind ? "Behind" : "Before";
                         });

TEST(FramesWithoutPixels, NothingIsReadOrWritten) {
  for (uint32_t id = 1; id <= 18; ++id) {
    for (const Size size : {Size{0, 0}, Size{0, 1}, Size{0, 480}, Size{1, 0}, Size{640, 0}}) {
      for (const uint32_t parameter : {0u, 1u, 2u, 8u, 10u, 11u, 12u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(testing::Message() << "effect " << id << ", " << size.width << " x "
                                        << size.height << ", parameter " << parameter);
        EXPECT_EQ(Apply(id, {}, size.width, size.height, parameter), Bytes());
      }
    }
  }
}

}  // namespace
}  // namespace kolm
