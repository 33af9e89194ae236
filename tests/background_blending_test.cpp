// Blending: its arithmetic by hand, and what an odd or empty frame touches.
#include <gtest/gtest.h>

#include "module/kolm.h"
#include "platform/host/host_kernel.h"
#include "tests/effect_frames.h"
#include "tests/guarded_buffer.h"
#include "tests/guarded_run.h"
#include "tests/reference_background.h"

namespace kolm {
namespace {

class BackgroundBlending : public testing::Test {
 protected:
  void SetUp() override {
    host::SetDebugSink([this](const std::string& text) { lines.push_back(text); });
  }
  void TearDown() override { host::SetDebugSink(nullptr); }

  std::vector<std::string> lines;
};

// The frame, then one alpha value for all pixels.
Bytes WithAlpha(Bytes frame, uint8_t alpha) {
  frame.resize(frame.size() / 2 * 3, alpha);
  return frame;
}

Bytes Blend(uint32_t width, uint32_t height, const Bytes& background, const Bytes& live) {
  return RunAlike(background, live.size(), [&](const uint8_t* source, uint8_t* output) {
    EXPECT_EQ(Kolm_BG_AlphaBlending(width, height, source, live.data(), output), 0);
  });
}

Bytes OneLess(Bytes bytes) {
  for (uint8_t& byte : bytes) byte -= byte != 0;
  return bytes;
}

TEST_F(BackgroundBlending, FullAlphaIsTheBackgroundLessOne) {
  for (const Size size : {Size{46, 33}, Size{7, 5}, Size{1, 1}, Size{2, 1}}) {
    const Bytes background = NoiseFrame(size.width, size.height);
    const Bytes live(background.size(), 77);
    EXPECT_EQ(Blend(size.width, size.height, WithAlpha(background, 255), live),
              OneLess(background));
  }
}

TEST_F(BackgroundBlending, NoAlphaIsTheLivePictureLessOne) {
  for (const Size size : {Size{46, 33}, Size{7, 5}, Size{1, 1}, Size{2, 1}}) {
    const Bytes live = NoiseFrame(size.width, size.height);
    const Bytes background(live.size(), 77);
    EXPECT_EQ(Blend(size.width, size.height, WithAlpha(background, 0), live), OneLess(live));
  }
}

TEST_F(BackgroundBlending, EveryPairOfBytesUnderEveryAlpha) {
  // 256 x 256 bytes: the background's value counts along the columns, the live one's along the
  // rows.
  Bytes background(size_t{256} * 256), live(background.size());
  for (size_t i = 0; i < background.size(); ++i) {
    background[i] = static_cast<uint8_t>(i % 256);
    live[i] = static_cast<uint8_t>(i / 256);
  }
  Bytes expected(background.size()), output(background.size());
  for (const InstructionSet set : InstructionSets()) {
    const HeldInstructionSet held(set);
    for (int alpha = 0; alpha < 256; ++alpha) {
      for (size_t i = 0; i < expected.size(); ++i) {
        expected[i] = static_cast<uint8_t>((background[i] * alpha + live[i] * (255 - alpha)) / 256);
      }
      const Bytes operand = WithAlpha(background, static_cast<uint8_t>(alpha));
      Kolm_BG_AlphaBlending(128, 256, operand.data(), live.data(), output.data());
      ASSERT_EQ(output, expected) << Name(set) << ", alpha " << alpha;
    }
  }
}

TEST_F(BackgroundBlending, HalfAlphaRoundsDown) {
  EXPECT_EQ(Blend(16, 2, WithAlpha(Bytes(64, 200), 128), Bytes(64, 100)), Bytes(64, 149));
}

TEST_F(BackgroundBlending, ChromaFollowsTheEvenPixel) {
  constexpr size_t kPixels = 24;
  Bytes background(kPixels * 2, 200), expected;
  const Bytes live(kPixels * 2, 100);
  for (size_t pixel = 0; pixel < kPixels; ++pixel) {
    background.push_back(pixel % 2 == 0 ? 255 : 0);
    // Y0 and U, then Y1 and V.
    expected.push_back(pixel % 2 == 0 ? 199 : 99);
    expected.push_back(199);
  }
  EXPECT_EQ(Blend(kPixels, 1, background, live), expected);
}

TEST_F(BackgroundBlending, AnOddCountEndsWithItsLastPixel) {
  // 3 x 3 pixels in buffers of exactly 27 and 18 bytes: a touch behind them faults.
  GuardedBuffer live(18, GuardedBuffer::Flush::End);
  std::fill_n(live.data(), 18, 100);
  live.MakeReadOnly();
  const Bytes output =
      RunAlike(WithAlpha(Bytes(18, 200), 255), 18, [&](const uint8_t* source, uint8_t* target) {
        Kolm_BG_AlphaBlending(3, 3, source, live.data(), target);
      });
  EXPECT_EQ(output, Bytes(18, 199));
}

TEST_F(BackgroundBlending, TheOutputMayBeTheLivePicture) {
  const Bytes background = WithAlpha(NoiseFrame(61, 17), 90);
  const Bytes live = NoiseFrame(61, 19);
  const Bytes frame(live.begin(), live.begin() + ptrdiff_t{61} * 17 * 2);
  const Bytes expected = reference::BlendBackground(61, 17, background, frame);
  for (const InstructionSet set : InstructionSets()) {
    const HeldInstructionSet held(set);
    Bytes both = frame;
    Kolm_BG_AlphaBlending(61, 17, background.data(), both.data(), both.data());
    EXPECT_EQ(both, expected) << Name(set);
  }
}

TEST_F(BackgroundBlending, NoPixelsTouchNothing) {
  // As signed 32-bit numbers, these products are 0 or negative.
  for (const Size size : {Size{0, 0}, Size{0, 480}, Size{640, 0}, Size{0xFFFFFFFF, 1},
                          Size{2, 0x80000000}, Size{0x10000, 0x8000}}) {
    for (const InstructionSet set : InstructionSets()) {
      const HeldInstructionSet held(set);
      EXPECT_EQ(Kolm_BG_AlphaBlending(size.width, size.height, nullptr, nullptr, nullptr), 0);
    }
  }
}

TEST_F(BackgroundBlending, PrintsOneLineAndRunsAboveDispatch) {
  Bytes output(8);
  host::SetCallingLevel(host::kDispatchLevel + 1);
  EXPECT_EQ(Kolm_BG_AlphaBlending(2, 2, WithAlpha(Bytes(8, 5), 255).data(), Bytes(8, 9).data(),
                                  output.data()),
            0);
  host::SetCallingLevel(host::kPassiveLevel);
  EXPECT_EQ(output, Bytes(8, 4));
  EXPECT_EQ(lines, std::vector<std::string>({"Kolm: Kolm_BG_AlphaBlenging\n"}));
}

}  // namespace
}  // namespace kolm
