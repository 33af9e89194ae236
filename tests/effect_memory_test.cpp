// The effects' pool blocks and calling level.
#include <gtest/gtest.h>

#include <cstring>

#include "effects/effect_table.h"
#include "module/memory.h"
#include "platform/host/host_kernel.h"
#include "tests/effect_frames.h"
#include "tests/guarded_run.h"
#include "tests/reference_effects.h"

namespace kolm {
namespace {

constexpr uint32_t kWidth = 134, kHeight = 91;

uint32_t DefaultParameter(uint32_t id) {
  uint32_t parameter = 0;
  FindParameterDefault(id, &parameter);
  return parameter;
}

TEST(Pool, BlocksCarryTheirTagInMemoryOrder) {
  void* block = KolmAllocate(24);
  ASSERT_NE(block, nullptr);
  const auto blocks = host::PoolBlocks();
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0].address, block);
  EXPECT_EQ(blocks[0].bytes, 24u);
  char tag[4];
  std::memcpy(tag, &blocks[0].tag, sizeof tag);
  EXPECT_EQ(std::string(tag, 4), "kvPM");
  KolmFree(block);
  EXPECT_TRUE(host::PoolBlocks().empty());
}

TEST(Pool, ExhaustionGivesNull) {
  host::SetPoolFailure([](uint64_t) { return true; });
  EXPECT_EQ(KolmAllocate(1), nullptr);
  host::SetPoolFailure(nullptr);
}

TEST(Pool, ZeroAndCopyTouchTheirBytesAlone) {
  uint8_t bytes[6] = {1, 2, 3, 4, 5, 6};
  KolmZero(bytes + 1, 2);
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 6), Bytes({1, 0, 0, 4, 5, 6}));
  const uint8_t source[3] = {7, 8, 9};
  KolmCopy(bytes + 2, source, 3);
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 6), Bytes({1, 0, 7, 8, 9, 6}));
}

class EffectMemory : public testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override {
    host::SetDebugSink([](const std::string&) {});
    ASSERT_EQ(Kolm_VE_InitVideoEffect(GetParam(), &routine), 0);
    ASSERT_NE(routine, nullptr);
  }
  void TearDown() override { host::SetDebugSink(nullptr); }

  Bytes Run(const Bytes& source) {
    Bytes destination(source.size(), 0xA5);
    Kolm_VE_RunVideoEffect(routine, source.data(), destination.data(), kWidth, kHeight,
                           DefaultParameter(GetParam()));
    return destination;
  }

  EffectRoutine routine = nullptr;
};

TEST_P(EffectMemory, NothingIsKeptAfterTheCall) {
  for (const InstructionSet set : InstructionSets()) {
    const HeldInstructionSet held(set);
    Run(NoiseFrame(kWidth, kHeight));
    EXPECT_TRUE(host::PoolBlocks().empty()) << Name(set);
  }
}

TEST_P(EffectMemory, FailedAllocationGivesACopyAndNoLeak) {
  const Bytes source = NoiseFrame(kWidth, kHeight);
  const Bytes expected =
      reference::ApplyEffect(GetParam(), source, kWidth, kHeight, DefaultParameter(GetParam()));
  ASSERT_NE(expected, source);
  for (const InstructionSet set : InstructionSets()) {
    SCOPED_TRACE(Name(set));
    const HeldInstructionSet held(set);
    size_t copies = 0;
    const size_t failed = host::FailEachAllocationOnce([&] {
      const Bytes destination = Run(source);
      if (destination == source) {
        ++copies;
      } else {
        EXPECT_EQ(destination, expected);
      }
      EXPECT_EQ(host::DescribePoolBlocks(), "");
    });
    EXPECT_EQ(copies, failed);
    // The blur cannot do without work buffers.
    EXPECT_GE(failed, GetParam() == 5 ? 1u : 0u);
  }
}

TEST_P(EffectMemory, RunsAtDispatchLevel) {
  const Bytes source = NoiseFrame(kWidth, kHeight);
  const Bytes expected =
      reference::ApplyEffect(GetParam(), source, kWidth, kHeight, DefaultParameter(GetParam()));
  host::SetCallingLevel(host::kDispatchLevel);
  const Bytes destination = Run(source);
  EXPECT_EQ(host::CallingLevel(), host::kDispatchLevel);
  host::SetCallingLevel(host::kPassiveLevel);
  EXPECT_EQ(destination, expected);
}

INSTANTIATE_TEST_SUITE_P(Ids, EffectMemory, testing::Range(1u, 19u),
                         [](const auto& info) { return "Effect" + std::to_string(info.param); });

}  // namespace
}  // namespace kolm
