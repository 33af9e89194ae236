// The box blur's borders, radii and rounding, with means worked out by hand.
#include "effects/box_blur_effect.h"

#include <gtest/gtest.h>

#include "effects/effect_table.h"
#include "tests/effect_frames.h"
#include "tests/guarded_run.h"
#include "tests/reference_effects.h"

namespace kolm {
namespace {

TEST(BoxBlur, ZeroIsACopy) {
  const Bytes source = NoiseFrame(54, 7);
  EXPECT_EQ(Apply(5, source, 54, 7, 0), source);
}

TEST(BoxBlur, OddWidthIsACopy) {
  const Bytes source = NoiseFrame(55, 20);
  EXPECT_EQ(Apply(5, source, 55, 20, 3), source);
}

TEST(BoxBlur, UniformFrameStaysUniform) {
  for (const Size size : {Size{64, 40}, Size{34, 17}, Size{8, 60}, Size{2, 1}}) {
    for (const uint32_t parameter : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 20u, 0xFFFFFFFFu}) {
      SCOPED_TRACE(testing::Message()
                   << size.width << " x " << size.height << ", parameter " << parameter);
      const Bytes source = FlatFrame(size.width, size.height, 255, 37, 250);
      EXPECT_EQ(Apply(5, source, size.width, size.height, parameter), source);
    }
  }
}

TEST(BoxBlur, BordersAverageWhatLiesInside) {
  Bytes source = NoiseFrame(40, 30);
  Bytes out = Apply(5, source, 40, 30, 2);
  const FrameView from = {source, 40}, to = {out, 40};
  uint32_t nine = 0, twelve = 0;
  for (uint32_t row = 0; row <= 2; ++row) {
    for (uint32_t column = 0; column <= 3; ++column) {
      if (column <= 2) nine += from.Luma(row, column);
      twelve += from.Luma(row, column);
    }
  }
  EXPECT_EQ(to.Luma(0, 0), nine / 9);
  EXPECT_EQ(to.Luma(0, 1), twelve / 12);
}

TEST(BoxBlur, SinglePixelSpreadsToItsNeighbours) {
  Bytes source = FlatFrame(20, 10, 0, 128, 128);
  (FrameView{source, 20}).Luma(5, 8) = 255;
  Bytes expected = FlatFrame(20, 10, 0, 128, 128);
  for (uint32_t row = 4; row <= 6; ++row) {
    for (uint32_t column = 7; column <= 9; ++column) {
      (FrameView{expected, 20}).Luma(row, column) = 28;
    }
  }
  EXPECT_EQ(Apply(5, source, 20, 10, 1), expected);
}

TEST(BoxBlur, ChromaOfAPairIsTheFlooredMeanOfItsPixels) {
  // U by pairs 100, 100, 103: the middle pair's pixels have means 100 and 303 / 3 = 101.
  Bytes source = FlatFrame(6, 3, 50, 100, 128);
  for (uint32_t row = 0; row < 3; ++row) (FrameView{source, 6}).Chroma(row, 4) = 103;
  Bytes out = Apply(5, source, 6, 3, 1);
  EXPECT_EQ((FrameView{out, 6}).Chroma(1, 2), 100);
}

TEST(BoxBlur, RadiusIsHalfTheSmallerSideAtMost) {
  Bytes source = NoiseFrame(20, 11);
  Bytes out = Apply(5, source, 20, 11, 8);
  EXPECT_EQ(out, Apply(5, source, 20, 11, 5));
  uint32_t sum = 0;
  for (uint32_t row = 0; row < 11; ++row) {
    for (uint32_t column = 4; column <= 14; ++column) {
      sum += (FrameView{source, 20}).Luma(row, column);
    }
  }
  EXPECT_EQ((FrameView{out, 20}).Luma(5, 9), sum / 121);
  // Twice the parameter leaves 32 bits.
  EXPECT_EQ(Apply(5, source, 20, 11, 0x80000001), out);
}

TEST(BoxBlur, WindowsLargerThanTheFrameAreClipped) {
  for (const Size size : {Size{10, 10}, Size{16, 16}, Size{12, 40}, Size{40, 12}, Size{2, 2},
                          Size{2, 30}, Size{30, 2}, Size{30, 1}}) {
    for (const uint32_t parameter : {1u, 5u, 6u, 8u, 1000u}) {
      SCOPED_TRACE(testing::Message()
                   << size.width << " x " << size.height << ", parameter " << parameter);
      const Bytes source = NoiseFrame(size.width, size.height);
      EXPECT_EQ(Apply(5, source, size.width, size.height, parameter),
                reference::ApplyEffect(5, source, size.width, size.height, parameter));
    }
  }
}

TEST(BoxBlur, WindowSumsBeyond32BitsAreWhole) {
  // Windows of 4201 x 4201 bytes of 255 add up to more than 32 bits hold.
  const uint32_t side = 4200;
  Bytes source(size_t{side} * side * 2, 255);
  for (size_t i = 0; i < source.size(); i += 7) source[i] = static_cast<uint8_t>(250 + i % 5);
  Bytes out(source.size());
  for (const InstructionSet set : InstructionSets()) {
    const HeldInstructionSet held(set);
    BoxBlur(source.data(), out.data(), side, side, 0xFFFFFFFF);
    for (const auto& [pair, row] : {std::pair(1050u, 2100u), std::pair(0u, 0u)}) {
      const auto expected = reference::BlurredPair(source, side, side, 0xFFFFFFFF, pair, row);
      for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(out[(size_t{row} * side / 2 + pair) * 4 + i], expected[i]) << Name(set);
      }
    }
  }
}

}  // namespace
}  // namespace kolm
