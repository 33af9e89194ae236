// How deep the effects and the tracker's step reach down the stack, of which the kernel gives a
// thread little.
#include <gtest/gtest.h>

#include <iostream>

#include "effects/effect_table.h"
#include "facetrack/track_face.h"
#include "platform/host/host_kernel.h"
#include "tests/effect_frames.h"
#include "tests/guarded_run.h"

namespace kolm {
namespace {

constexpr size_t kMostStackBytes = 4096;

size_t DeepestRun(uint32_t id, Size size) {
  const Bytes source = NoiseFrame(size.width, size.height);
  Bytes destination(source.size());
  uint32_t minimum = 0, maximum = 0;
  FindParameterRange(id, &minimum, &maximum);
  size_t deepest = 0;
  for (uint32_t parameter = minimum; parameter <= maximum; ++parameter) {
    const size_t depth = host::StackDepth([&] {
      Kolm_VE_RunVideoEffect(FindEffectRoutine(id), source.data(), destination.data(), size.width,
                             size.height, parameter);
    });
    deepest = std::max(deepest, depth);
  }
  return deepest;
}

TEST(StackDepth, OfEveryEffectIsAtMostOnePage) {
  host::SetDebugSink([](const std::string&) {});
  for (const InstructionSet set : InstructionSets()) {
    const HeldInstructionSet held(set);
    size_t deepest = 0;
    uint32_t deepestId = 0;
    for (uint32_t id = KOLM_EFFECT_FIRST; id <= KOLM_EFFECT_LAST; ++id) {
      for (const Size size : {Size{854, 90}, Size{62, 31}}) {
        const size_t depth = DeepestRun(id, size);
        EXPECT_LE(depth, kMostStackBytes) << "effect " << id << ", " << Name(set);
        if (depth > deepest) {
          deepest = depth;
          deepestId = id;
        }
      }
    }
    std::cout << Name(set) << ": " << deepest << " bytes of stack at most, by effect " << deepestId
              << "\n";
    EXPECT_GT(deepest, 0u);
  }
  host::SetDebugSink(nullptr);
}

// Without the detector, which is the system's library here.
TEST(StackDepth, OfTheTrackersStepIsAtMostOnePage) {
  host::SetDebugSink([](const std::string&) {});
  const Bytes source = NoiseFrame(640, 480);
  Bytes destination(source.size());
  FaceTracker tracker = {};
  tracker.frameWidth = 640;
  tracker.frameHeight = 480;
  tracker.stepCount = 8;
  tracker.srcFrame = source.data();
  tracker.dstFrame = destination.data();
  for (const InstructionSet set : InstructionSets()) {
    const HeldInstructionSet held(set);
    size_t deepest = 0;
    for (const int32_t width : {639, 600, 300, 100}) {
      tracker.cropWidth = tracker.targetWidth = width;
      tracker.cropHeight = tracker.targetHeight = width / 2;
      deepest = std::max(deepest, host::StackDepth([&] {
                           FollowBox(&tracker, {10, 10, width, width / 2});
                         }));
    }
    std::cout << Name(set) << ": " << deepest << " bytes of stack at most\n";
    EXPECT_GT(deepest, 0u);
    EXPECT_LE(deepest, kMostStackBytes);
  }
  host::SetDebugSink(nullptr);
}

}  // namespace
}  // namespace kolm
