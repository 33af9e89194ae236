// Grayscale, sepia, negative and posterize, with tones worked out by hand.
#include "effects/tone_effects.h"

#include <gtest/gtest.h>

#include "tests/effect_frames.h"
#include "tests/guarded_run.h"

namespace kolm {
namespace {

// One row of 256 pixels in which luma and either chroma take every value.
Bytes EveryTone() {
  Bytes frame;
  for (uint32_t i = 0; i < 256; ++i) {
    frame.push_back(static_cast<uint8_t>(i));
    frame.push_back(static_cast<uint8_t>(i));
    frame.push_back(static_cast<uint8_t>(i));
    frame.push_back(static_cast<uint8_t>(i));
  }
  return frame;
}

TEST(Grayscale, KeepsLumaAndSetsChromaTo128) {
  const Bytes source = NoiseFrame(54, 7);
  const Bytes out = Apply(3, source, 54, 7);
  for (size_t i = 0; i < source.size(); ++i) ASSERT_EQ(out[i], i % 2 == 0 ? source[i] : 128);
}

TEST(Grayscale, WritesNoPairBeyondAnOddPixelCount) {
  const Bytes source = NoiseFrame(5, 3);
  Bytes expected = source;
  for (size_t i = 1; i < expected.size(); i += 2) expected[i] = 128;
  EXPECT_EQ(Apply(3, source, 5, 3), expected);
}

TEST(Sepia, IgnoresParameterAndSourceChroma) {
  Bytes source = NoiseFrame(54, 7);
  const Bytes out = Apply(4, source, 54, 7);
  for (size_t i = 0; i < out.size(); ++i) {
    ASSERT_EQ(out[i], i % 4 == 1 ? 96 : i % 4 == 3 ? 150 : source[i]);
  }
  for (size_t i = 1; i < source.size(); i += 2) source[i] ^= 0x5A;
  EXPECT_EQ(Apply(4, source, 54, 7, 0xFFFFFFFF), out);
}

TEST(Negative, OfOnePair) {
  EXPECT_EQ(Apply(13, {16, 0, 235, 128}, 2, 1), Bytes({239, 0, 20, 128}));
  EXPECT_EQ(Apply(13, {0, 1, 255, 255}, 2, 1), Bytes({255, 255, 0, 1}));
}

TEST(Negative, TwiceIsThePicture) {
  const Bytes source = EveryTone();
  EXPECT_EQ(Apply(13, Apply(13, source, 512, 1), 512, 1), source);
}

TEST(WholePairEffects, RoundAnOddPixelCountUp) {
  const Bytes source = {16, 0, 235, 128, 100, 3, 200, 77};  // three pixels and one to spare
  EXPECT_EQ(Apply(4, source, 3, 1), Bytes({16, 96, 235, 150, 100, 96, 200, 150}));
  EXPECT_EQ(Apply(13, source, 1, 3), Bytes({239, 0, 20, 128, 155, 253, 55, 179}));
  EXPECT_EQ(Apply(14, source, 3, 1, 10), Bytes({16, 16, 235, 240, 16, 16, 235, 16}));
}

TEST(Posterize, ZeroIsACopy) {
  const Bytes source = NoiseFrame(54, 7);
  EXPECT_EQ(Apply(14, source, 54, 7, 0), source);
  const Bytes odd = NoiseFrame(5, 3);
  EXPECT_EQ(Apply(14, odd, 5, 3, 0), odd);
}

TEST(Posterize, TenLeavesTwoLevels) {
  const Bytes source = EveryTone();
  const Bytes out = Apply(14, source, 512, 1, 10);
  for (size_t i = 0; i < source.size(); ++i) {
    ASSERT_EQ(out[i], source[i] < 128 ? 16 : i % 2 == 0 ? 235 : 240);
  }
}

TEST(Posterize, InnerLevelsAreNotClamped) {
  // 20 levels: 13 is level 1, 255 * 1 / 19 = 13; 12 is still level 0; level 18 gives 241.
  EXPECT_EQ(Apply(14, {13, 13, 12, 12}, 2, 1, 1), Bytes({13, 13, 16, 16}));
  EXPECT_EQ(Apply(14, {242, 242, 243, 243}, 2, 1, 1), Bytes({241, 241, 235, 240}));
  EXPECT_EQ(Apply(14, {255, 255, 0, 0}, 2, 1, 1), Bytes({235, 240, 16, 16}));
}

TEST(Posterize, ElevenLeavesNoLevelAndMoreIsACopy) {
  const Bytes source = EveryTone();
  EXPECT_EQ(Apply(14, source, 512, 1, 11), Bytes(source.size(), 16));
  for (const uint32_t parameter : {12u, 21u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Apply(14, source, 512, 1, parameter), source);
  }
}

}  // namespace
}  // namespace kolm
