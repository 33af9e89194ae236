// Pixelate, emboss, edge relief and sketch, with results worked out by hand.
#include "effects/neighbourhood_effects.h"

#include <gtest/gtest.h>

#include "tests/effect_frames.h"
#include "tests/guarded_run.h"

namespace kolm {
namespace {

bool OnBorder(uint32_t row, uint32_t column, uint32_t width, uint32_t height) {
  return row == 0 || row == height - 1 || column == 0 || column == width - 1;
}

// A frame of luma `before` with `after` from row and column 5 on; its only steps from the
// upper-left neighbour lie in row 5 and column 5.
Bytes SteppedFrame(uint8_t before, uint8_t after) {
  Bytes frame = FlatFrame(20, 12, before, 60, 70);
  const FrameView view = {frame, 20};
  for (uint32_t row = 5; row < 12; ++row) {
    for (uint32_t column = 5; column < 20; ++column) view.Luma(row, column) = after;
  }
  return frame;
}

TEST(EmbossGrey, FlatFrameIsMidGreyInsideItsOwnBorder) {
  Bytes out = Apply(7, FlatFrame(22, 9, 200, 30, 40), 22, 9);
  const FrameView view = {out, 22};
  for (uint32_t row = 0; row < 9; ++row) {
    for (uint32_t column = 0; column < 22; ++column) {
      ASSERT_EQ(view.Luma(row, column), OnBorder(row, column, 22, 9) ? 200 : 128);
      ASSERT_EQ(view.Chroma(row, column), 128);
    }
  }
}

TEST(EmbossGrey, StepsAreClampedToTheVideoRange) {
  Bytes rising = Apply(7, SteppedFrame(20, 220), 20, 12);
  EXPECT_EQ((FrameView{rising, 20}).Luma(5, 9), 235);
  EXPECT_EQ((FrameView{rising, 20}).Luma(6, 9), 128);
  Bytes falling = Apply(7, SteppedFrame(220, 20), 20, 12);
  EXPECT_EQ((FrameView{falling, 20}).Luma(5, 9), 16);
  Bytes slight = Apply(7, SteppedFrame(100, 130), 20, 12);
  EXPECT_EQ((FrameView{slight, 20}).Luma(5, 9), 158);
}

TEST(EmbossColour, WritesOneRowAboveAndKeepsChroma) {
  Bytes out = Apply(8, SteppedFrame(100, 130), 20, 12);
  const FrameView view = {out, 20};
  EXPECT_EQ(view.Luma(4, 9), 158);
  EXPECT_EQ(view.Luma(5, 9), 128);
  EXPECT_EQ(view.Luma(0, 9), 128);
  EXPECT_EQ(view.Luma(4, 0), 100);
  EXPECT_EQ(view.Luma(7, 19), 130);
  EXPECT_EQ(view.Chroma(4, 8), 60);
  EXPECT_EQ(view.Chroma(4, 9), 70);
}

TEST(EmbossColour, LastTwoRowsStayAsTheyAre) {
  for (const uint32_t id : {8u, 11u}) {
    Bytes source = FlatFrame(32, 10, 90, 50, 60);
    Bytes noise = NoiseFrame(32, 2);
    std::copy(noise.begin(), noise.end(), source.end() - 2 * 64);
    const Bytes out = Apply(id, source, 32, 10);
    EXPECT_TRUE(std::equal(noise.begin(), noise.end(), out.end() - 2 * 64));
  }
}

TEST(EdgeRelief, FlatFrameIsBlackInside) {
  Bytes grey = Apply(10, FlatFrame(22, 9, 200, 30, 40), 22, 9);
  Bytes colour = Apply(11, FlatFrame(22, 9, 200, 30, 40), 22, 9);
  const FrameView greyView = {grey, 22}, colourView = {colour, 22};
  for (uint32_t row = 0; row < 9; ++row) {
    for (uint32_t column = 0; column < 22; ++column) {
      ASSERT_EQ(greyView.Luma(row, column), OnBorder(row, column, 22, 9) ? 200 : 0);
      ASSERT_EQ(greyView.Chroma(row, column), 128);
      const bool written = row <= 6 && column >= 1 && column <= 20;
      ASSERT_EQ(colourView.Luma(row, column), written ? 0 : 200);
      ASSERT_EQ(colourView.Chroma(row, column), column % 2 == 0 ? 30 : 40);
    }
  }
}

TEST(EdgeRelief, LargeStepsStopAt128And129) {
  Bytes rising = Apply(10, SteppedFrame(20, 220), 20, 12);
  EXPECT_EQ((FrameView{rising, 20}).Luma(5, 9), 128);
  Bytes falling = Apply(10, SteppedFrame(220, 20), 20, 12);
  EXPECT_EQ((FrameView{falling, 20}).Luma(5, 9), 129);
  Bytes slightlyFalling = Apply(10, SteppedFrame(21, 20), 20, 12);
  EXPECT_EQ((FrameView{slightlyFalling, 20}).Luma(5, 9), 255);
  Bytes colour = Apply(11, SteppedFrame(220, 20), 20, 12);
  EXPECT_EQ((FrameView{colour, 20}).Luma(4, 9), 129);
}

TEST(Sketch, FlatFrameIsWhiteInABlackBorder) {
  Bytes out = Apply(12, FlatFrame(22, 9, 200, 30, 40), 22, 9);
  const FrameView view = {out, 22};
  for (uint32_t row = 0; row < 9; ++row) {
    for (uint32_t column = 0; column < 22; ++column) {
      ASSERT_EQ(view.Luma(row, column), OnBorder(row, column, 22, 9) ? 0 : 235);
      ASSERT_EQ(view.Chroma(row, column), 128);
    }
  }
}

TEST(Sketch, EdgesThatRiseToTheRightAreMissed) {
  // Left to right 100, 150: only kernels that weigh the right side would answer.
  Bytes rising = FlatFrame(12, 5, 100, 128, 128);
  Bytes falling = FlatFrame(12, 5, 150, 128, 128);
  for (uint32_t row = 0; row < 5; ++row) {
    for (uint32_t column = 6; column < 12; ++column) {
      (FrameView{rising, 12}).Luma(row, column) = 150;
      (FrameView{falling, 12}).Luma(row, column) = 100;
    }
  }
  Bytes risingOut = Apply(12, rising, 12, 5), fallingOut = Apply(12, falling, 12, 5);
  EXPECT_EQ((FrameView{risingOut, 12}).Luma(2, 5), 235);
  // The vertical kernel gives 4 * 50 = 200.
  EXPECT_EQ((FrameView{fallingOut, 12}).Luma(2, 5), 51);
}

TEST(Sketch, FramesWithoutInteriorAreBlack) {
  for (const Size size : {Size{2, 9}, Size{40, 2}, Size{40, 1}, Size{1, 40}}) {
    EXPECT_EQ(Apply(12, NoiseFrame(size.width, size.height), size.width, size.height),
              FlatFrame(size.width, size.height, 0, 128, 128));
  }
}

TEST(Pixelate, ZeroIsACopy) {
  const Bytes source = NoiseFrame(54, 7);
  EXPECT_EQ(Apply(6, source, 54, 7, 0), source);
}

TEST(Pixelate, ThreeOn640By480Has53By40Blocks) {
  Bytes source = NoiseFrame(640, 480);
  Bytes out = Apply(6, source, 640, 480, 3);
  const FrameView from = {source, 640}, to = {out, 640};
  for (uint32_t row = 0; row < 480; ++row) {
    for (uint32_t column = 0; column < 640; ++column) {
      const uint32_t y = row / 12 * 12;
      const uint32_t x = column < 624 ? column / 12 * 12 : 624;
      ASSERT_EQ(to.Luma(row, column), from.Luma(y, x)) << row << ", " << column;
      ASSERT_EQ(to.Chroma(row, column), from.Chroma(y, x + column % 2)) << row << ", " << column;
    }
  }
}

TEST(Pixelate, LastBlocksTakeTheRemainders) {
  Bytes source = NoiseFrame(30, 23);
  Bytes out = Apply(6, source, 30, 23, 2);
  EXPECT_EQ((FrameView{out, 30}).Luma(22, 29), (FrameView{source, 30}).Luma(8, 16));
  EXPECT_EQ((FrameView{out, 30}).Luma(7, 15), (FrameView{source, 30}).Luma(0, 8));
  EXPECT_EQ((FrameView{out, 30}).Luma(8, 16), (FrameView{source, 30}).Luma(8, 16));
}

TEST(Pixelate, BlockThatDoesNotFitIsACopy) {
  const Bytes source = NoiseFrame(16, 12);
  EXPECT_NE(Apply(6, source, 16, 12, 3), source);
  // 4 * 0x40000001 is 4 in 32 bits.
  for (const uint32_t parameter : {4u, 5u, 0x40000000u, 0x40000001u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Apply(6, source, 16, 12, parameter), source);
  }
}

TEST(NeighbourhoodEffects, BordersAloneKeepTheirLuma) {
  for (const Size size :
       {Size{1, 1}, Size{2, 1}, Size{1, 5}, Size{2, 2}, Size{40, 2}, Size{2, 9}}) {
    SCOPED_TRACE(testing::Message() << size.width << " x " << size.height);
    const Bytes source = NoiseFrame(size.width, size.height);
    Bytes grey = source;
    for (size_t i = 1; i < grey.size(); i += 2) grey[i] = 128;
    for (const uint32_t id : {7u, 10u}) EXPECT_EQ(Apply(id, source, size.width, size.height), grey);
    for (const uint32_t id : {8u, 11u}) {
      EXPECT_EQ(Apply(id, source, size.width, size.height), source);
    }
  }
}

}  // namespace
}  // namespace kolm
