// Zooms, grid and strip warps at everyday and awkward sizes, with sizes worked out by hand.
#include "effects/geometry_effects.h"

#include <gtest/gtest.h>

#include "tests/effect_frames.h"
#include "tests/guarded_run.h"
#include "tests/reference_effects.h"
#include "tests/reference_scaling.h"

namespace kolm {
namespace {

using Lengths = std::vector<uint32_t>;

// A frame whose columns (or rows) carry the luma 10 * (slice + 1) of the eighth they belong to.
Bytes SlicedFrame(uint32_t width, uint32_t height, bool vertical) {
  Bytes frame = FlatFrame(width, height, 0, 90, 200);
  const FrameView view = {frame, width};
  for (uint32_t row = 0; row < height; ++row) {
    for (uint32_t column = 0; column < width; ++column) {
      const uint32_t position = vertical ? row : column;
      const uint32_t side = vertical ? height : width;
      uint32_t slice = 7;
      while (slice > 0 && position < slice * side / 8) --slice;
      view.Luma(row, column) = static_cast<uint8_t>(10 * (slice + 1));
    }
  }
  return frame;
}

// The lengths of the strips along one row, or one column, of what effect `id` makes of that frame.
Lengths StripLengths(uint32_t id, uint32_t width, uint32_t height) {
  const bool vertical = id >= 17;
  Bytes out = Apply(id, SlicedFrame(width, height, vertical), width, height);
  const FrameView view = {out, width};
  Lengths lengths;
  uint32_t previous = 0;
  for (uint32_t i = 0; i < (vertical ? height : width); ++i) {
    const uint32_t luma = vertical ? view.Luma(i, width - 1) : view.Luma(height - 1, i);
    if (luma != previous) lengths.push_back(0);
    previous = luma;
    ++lengths.back();
  }
  return lengths;
}

void ExpectCopy(uint32_t id, uint32_t width, uint32_t height, uint32_t parameter) {
  SCOPED_TRACE(testing::Message() << "effect " << id << ", " << width << " x " << height
                                  << ", parameter " << parameter);
  const Bytes source = NoiseFrame(width, height);
  EXPECT_EQ(Apply(id, source, width, height, parameter), source);
}

TEST(Zoom, ParameterZeroIsACopy) {
  ExpectCopy(1, 640, 480, 0);
  ExpectCopy(2, 640, 480, 0);
}

TEST(Zoom, ParameterBeyondTenIsACopy) {
  for (const uint32_t id : {1u, 2u}) {
    for (const uint32_t parameter : {11u, 12u, 40u, 0x80000000u, 0xFFFFFFFFu}) {
      ExpectCopy(id, 64, 48, parameter);
    }
  }
}

void ExpectReference(uint32_t id, uint32_t width, uint32_t height, uint32_t parameter) {
  SCOPED_TRACE(testing::Message() << "effect " << id << ", " << width << " x " << height
                                  << ", parameter " << parameter);
  const Bytes source = NoiseFrame(width, height);
  const Bytes result = Apply(id, source, width, height, parameter);
  EXPECT_EQ(result, reference::ApplyEffect(id, source, width, height, parameter));
  EXPECT_NE(result, source);
}

TEST(Zoom, PartsBeyondTheScalersPositionsAreCopied) {
  ExpectCopy(1, 70000, 8, 1);
  ExpectCopy(1, 100000, 8, 10);
  ExpectCopy(2, 32768, 8, 5);
  ExpectCopy(2, 8, 32768, 5);
}

TEST(Zoom, LargeFramesWhoseMiddleTheScalerReachesAreEnlarged) {
  ExpectReference(1, 32768, 8, 1);
  ExpectReference(1, 40000, 8, 10);
  ExpectReference(1, 8, 40000, 10);
  const Bytes source = NoiseFrame(32766, 8);
  EXPECT_NE(Apply(1, source, 32766, 8, 5), source);
  EXPECT_NE(Apply(2, source, 32766, 8, 5), source);
}

TEST(Zoom, SidesThatVanishAreCopied) {
  ExpectCopy(1, 64, 1, 1);
  ExpectCopy(1, 2, 64, 10);
  ExpectCopy(2, 64, 1, 1);
  ExpectCopy(2, 2, 64, 10);
  ExpectCopy(2, 1, 64, 1);
}

TEST(ZoomIn, LargestParameterEnlargesTheCentralQuarterFourTimes) {
  Bytes source = NoiseFrame(640, 480);
  Bytes out = Apply(1, source, 640, 480, 10);
  const FrameView from = {source, 640}, to = {out, 640};
  for (uint32_t row = 0; row < 480; ++row) {
    for (uint32_t column = 0; column < 640; ++column) {
      ASSERT_EQ(to.Luma(row, column), from.Luma(180 + row / 4, 240 + column / 4));
      // Both pixels of a pair stand on the same source pixel.
      const uint32_t pair = (240 + column / 4) / 2 * 2;
      ASSERT_EQ(to.Chroma(row, column), from.Chroma(180 + row / 4, pair + column % 2));
    }
  }
}

TEST(ZoomIn, OddWidthIsACopy) {
  ExpectCopy(1, 641, 48, 1);
  ExpectCopy(1, 7, 7, 10);
}

TEST(ZoomOut, LargestParameterLeavesAQuarterOnBlack) {
  Bytes source = NoiseFrame(640, 480);
  Bytes out = Apply(2, source, 640, 480, 10);
  const FrameView from = {source, 640}, to = {out, 640};
  for (uint32_t row = 0; row < 480; ++row) {
    for (uint32_t column = 0; column < 640; ++column) {
      if (row < 180 || row >= 300 || column < 240 || column >= 400) {
        ASSERT_EQ(to.Luma(row, column), 0);
        ASSERT_EQ(to.Chroma(row, column), 128);
        continue;
      }
      const uint32_t y = (row - 180) * 4, x = (column - 240) * 4;
      ASSERT_EQ(to.Luma(row, column), from.Luma(y, x));
      const uint32_t first = (column - 240) / 2 * 8, byte = column % 2;
      ASSERT_EQ(to.Chroma(row, column),
                (from.Chroma(y, first + byte) + from.Chroma(y, first + 4 + byte)) / 2);
    }
  }
}

TEST(ZoomOut, ReducedPictureStartsAtAWholePair) {
  // 32 wide minus 12 leaves 20, so that it would start at pixel 6; 34 minus 5 leaves 28: pixel 3
  // would part a pair.
  for (const auto& [width, parameter, left] : {std::tuple(32u, 5u, 6u), std::tuple(34u, 2u, 2u)}) {
    Bytes out = Apply(2, FlatFrame(width, 40, 200, 50, 60), width, 40, parameter);
    const FrameView view = {out, width};
    EXPECT_EQ(view.Luma(20, left - 1), 0);
    EXPECT_EQ(view.Luma(20, left), 200);
    EXPECT_EQ(view.Chroma(20, left), 50);
    EXPECT_EQ(view.Chroma(20, left + 1), 60);
  }
}

TEST(ZoomOut, OddWidthIsReducedAllTheSame) {
  Bytes out = Apply(2, FlatFrame(41, 40, 200, 50, 50), 41, 40, 10);
  const FrameView view = {out, 41};
  // 41 - 31 = 10 pixels at byte 31 rounded down to 28; rows 15 to 24.
  for (uint32_t row = 0; row < 40; ++row) {
    for (uint32_t column = 0; column < 41; ++column) {
      const bool inside = row >= 15 && row < 25 && column >= 14 && column < 24;
      ASSERT_EQ(view.Luma(row, column), inside ? 200 : 0) << row << ", " << column;
      ASSERT_EQ(view.Chroma(row, column), inside ? 50 : 128) << row << ", " << column;
    }
  }
}

TEST(PictureGrid, ThreeOn640By480HasTilesOf212By160AndALastColumnOf216) {
  const Bytes source = NoiseFrame(640, 480);
  const Bytes out = Apply(9, source, 640, 480, 3);
  const Bytes tile = reference::CropScaleYuv16(source, 640, 212, 160, {0, 0, 640, 480});
  const Bytes last = reference::CropScaleYuv16(source, 640, 216, 160, {0, 0, 640, 480});
  for (size_t row = 0; row < 480; ++row) {
    const auto line = out.begin() + row * 1280;
    const auto tileLine = tile.begin() + row % 160 * 424;
    const auto lastLine = last.begin() + row % 160 * 432;
    ASSERT_TRUE(std::equal(line, line + 424, tileLine)) << "row " << row;
    ASSERT_TRUE(std::equal(line + 424, line + 848, tileLine)) << "row " << row;
    ASSERT_TRUE(std::equal(line + 848, line + 1280, lastLine)) << "row " << row;
  }
}

TEST(PictureGrid, LastRowTakesTheRemainder) {
  // 50 / 4 = 12 rows a tile, 14 for the last.
  const Bytes source = NoiseFrame(64, 50);
  const Bytes out = Apply(9, source, 64, 50, 4);
  const Bytes last = reference::CropScaleYuv16(source, 64, 16, 14, {0, 0, 64, 50});
  for (size_t row = 0; row < 14; ++row) {
    const auto line = out.begin() + (36 + row) * 128;
    for (size_t tile = 0; tile < 4; ++tile) {
      ASSERT_TRUE(std::equal(line + tile * 32, line + tile * 32 + 32, last.begin() + row * 32));
    }
  }
}

TEST(PictureGrid, OneOrLessIsACopy) {
  for (const uint32_t parameter : {1u, 0u, 0x80000000u, 0xFFFFFFFFu}) {
    ExpectCopy(9, 640, 480, parameter);
  }
}

TEST(PictureGrid, TilesThatVanishAreACopy) {
  ExpectCopy(9, 14, 480, 8);
  ExpectCopy(9, 640, 7, 8);
  ExpectCopy(9, 640, 480, 0x7FFFFFFF);
}

TEST(PictureGrid, OddWidthAndTooLargeSidesAreACopy) {
  ExpectCopy(9, 641, 48, 3);
  ExpectCopy(9, 32768, 4, 2);
  ExpectCopy(9, 4, 32768, 2);
}

TEST(StripWarp, SixHundredFortyBy480HasTheEverydayStrips) {
  EXPECT_EQ(StripLengths(15, 640, 480), Lengths({20, 40, 80, 180, 180, 80, 40, 20}));
  EXPECT_EQ(StripLengths(16, 640, 480), Lengths({180, 80, 40, 20, 20, 40, 80, 180}));
  EXPECT_EQ(StripLengths(17, 640, 480), Lengths({16, 32, 64, 128, 128, 64, 32, 16}));
  EXPECT_EQ(StripLengths(18, 640, 480), Lengths({128, 64, 32, 16, 16, 32, 64, 128}));
}

TEST(StripWarp, WidthsOfAnOddNumberOfPairsKeepPairsWhole) {
  EXPECT_EQ(StripLengths(15, 854, 48), Lengths({28, 56, 112, 230, 232, 112, 56, 28}));
  EXPECT_EQ(StripLengths(16, 854, 48), Lengths({230, 112, 56, 28, 28, 56, 112, 232}));
  EXPECT_EQ(StripLengths(15, 1366, 8), Lengths({44, 88, 176, 374, 376, 176, 88, 44}));
  EXPECT_EQ(StripLengths(16, 1366, 8), Lengths({374, 176, 88, 44, 44, 88, 176, 376}));
  EXPECT_EQ(StripLengths(15, 62, 1), Lengths({2, 4, 8, 16, 18, 8, 4, 2}));
}

TEST(StripWarp, SlicesMayStartAtOddColumns) {
  EXPECT_EQ(StripLengths(15, 424, 24), Lengths({14, 28, 56, 114, 114, 56, 28, 14}));
  EXPECT_EQ(StripLengths(16, 424, 24), Lengths({114, 56, 28, 14, 14, 28, 56, 114}));
}

TEST(StripWarp, LastStripTakesTheRowOfAnOddHeight) {
  EXPECT_EQ(StripLengths(17, 64, 481), Lengths({16, 32, 64, 128, 128, 64, 32, 17}));
  EXPECT_EQ(StripLengths(18, 64, 481), Lengths({128, 64, 32, 16, 16, 32, 64, 129}));
  EXPECT_EQ(StripLengths(17, 2, 31), Lengths({1, 2, 4, 8, 8, 4, 2, 2}));
}

TEST(StripWarp, SmallestSizesThatGiveStrips) {
  EXPECT_EQ(StripLengths(15, 60, 1), Lengths({2, 4, 8, 16, 16, 8, 4, 2}));
  EXPECT_EQ(StripLengths(16, 60, 1), Lengths({16, 8, 4, 2, 2, 4, 8, 16}));
  EXPECT_EQ(StripLengths(17, 2, 30), Lengths({1, 2, 4, 8, 8, 4, 2, 1}));
  EXPECT_EQ(StripLengths(18, 2, 30), Lengths({8, 4, 2, 1, 1, 2, 4, 8}));
}

TEST(StripWarp, SizesWithoutStripsOddWidthsAndTooLargeSidesAreACopy) {
  for (const uint32_t id : {15u, 16u}) ExpectCopy(id, 58, 480, 0);
  for (const uint32_t id : {17u, 18u}) ExpectCopy(id, 640, 29, 0);
  for (const uint32_t id : {15u, 16u, 17u, 18u}) {
    ExpectCopy(id, 641, 48, 0);
    ExpectCopy(id, 32784, 32, 0);
    ExpectCopy(id, 64, 32784, 0);
  }
}

TEST(StripWarp, SlicesUpToTheScalersLastPositionAreWarped) {
  for (const uint32_t id : {15u, 16u}) ExpectReference(id, 32768, 30, 0);
  for (const uint32_t id : {17u, 18u}) ExpectReference(id, 60, 32768, 0);
}

TEST(StripWarp, ParameterIsIgnored) {
  const Bytes source = NoiseFrame(126, 62);
  for (const uint32_t id : {15u, 16u, 17u, 18u}) {
    EXPECT_EQ(Apply(id, source, 126, 62, 0xFFFFFFFF), Apply(id, source, 126, 62, 0));
  }
}

}  // namespace
}  // namespace kolm
