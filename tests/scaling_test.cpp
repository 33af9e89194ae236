// The three scalers at the places where their arithmetic changes, with results worked out by hand.
#include <gtest/gtest.h>

#include "imaging/crop_scale_yuv16.h"
#include "imaging/scale_plane.h"
#include "tests/guarded_run.h"
#include "tests/random_case.h"

namespace kolm {
namespace {

using Bytes = std::vector<uint8_t>;
using CropScale = decltype(&CropScaleYUV16);

// Noise that is the same in every run.
Bytes Noise(size_t bytes) {
  Random random(1, bytes);
  Bytes noise(bytes);
  for (uint8_t& byte : noise) byte = static_cast<uint8_t>(random.Bits());
  return noise;
}

Bytes Scale(CropScale scale, const Bytes& source, int32_t srcWidth, int32_t srcHeight,
            int32_t dstWidth, int32_t dstHeight, int32_t x, int32_t y, int32_t width,
            int32_t height) {
  const size_t bytes =
      dstWidth > 0 && dstHeight > 0 ? size_t{4} * ((dstWidth + 1) / 2) * dstHeight : 0;
  return RunAlike(source, bytes, [=](const uint8_t* frame, uint8_t* destination) {
    scale(frame, srcWidth, srcHeight, destination, dstWidth, dstHeight, x, y, width, height);
  });
}

Bytes ScalePlane(const Bytes& source, int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                 int32_t dstHeight) {
  const size_t bytes = dstWidth > 0 && dstHeight > 0 ? size_t{1} * dstWidth * dstHeight : 0;
  return RunAlike(source, bytes, [=](const uint8_t* plane, uint8_t* destination) {
    ScalePlaneBilinear(plane, srcWidth, srcHeight, destination, dstWidth, dstHeight);
  });
}

int Mean(int a, int b) { return (a + b) / 2; }

TEST(CropScale, WholePictureAtItsOwnSizeIsACopy) {
  const Bytes source = Noise(54 * 7 * 2);
  EXPECT_EQ(Scale(CropScaleYUV16, source, 54, 7, 54, 7, 0, 0, 54, 7), source);
}

TEST(CropScale, HalvingTakesEvenPixelsAndTheChromaOfTwoPairs) {
  const int32_t width = 48, height = 6;
  const Bytes source = Noise(width * height * 2);
  const Bytes half =
      Scale(CropScaleYUV16, source, width, height, width / 2, height / 2, 0, 0, width, height);
  for (int32_t row = 0; row < height / 2; ++row) {
    for (int32_t pair = 0; pair < width / 4; ++pair) {
      const uint8_t* from = &source[row * 2 * width * 2 + pair * 8];
      const uint8_t* to = &half[row * width + pair * 4];
      EXPECT_EQ(to[0], from[0]);
      EXPECT_EQ(to[1], Mean(from[1], from[5]));
      EXPECT_EQ(to[2], from[4]);
      EXPECT_EQ(to[3], Mean(from[3], from[7]));
    }
  }
}

TEST(CropScale, OddStartTakesItsChromaFromTheOwnPair) {
  const Bytes source = {10, 100, 20, 110, 30, 120, 40, 130};
  EXPECT_EQ(Scale(CropScaleYUV16, source, 4, 1, 2, 1, 1, 0, 2, 1), Bytes({20, 110, 30, 120}));
}

TEST(CropScale, WidthOfOneWritesAWholePairPerRow) {
  const Bytes source = {10, 100, 20, 110, 30, 120, 40, 130,  //
                        50, 140, 60, 150, 70, 160, 80, 170};
  EXPECT_EQ(Scale(CropScaleYUV16, source, 4, 2, 1, 2, 0, 0, 2, 2),
            Bytes({10, 110, 30, 120, 50, 150, 70, 160}));
}

TEST(CropScale, OddWidthGivesRowsOfWholePairs) {
  const Bytes source = {10, 100, 20, 110, 30, 120, 40, 130};
  EXPECT_EQ(Scale(CropScaleYUV16, source, 4, 1, 3, 1, 0, 0, 3, 1),
            Bytes({10, 100, 20, 110, 30, 120, 40, 130}));
}

TEST(CropScale, EmptyDestinationIsLeftAlone) {
  const Bytes source = Noise(8 * 4 * 2);
  for (const CropScale scale : {CropScaleYUV16, CropScaleYUV16Bilinear}) {
    for (const auto& [width, height] :
         {std::pair(0, 4), std::pair(4, 0), std::pair(0, 0), std::pair(-2, 4), std::pair(4, -1),
          std::pair(-6, -6), std::pair(INT32_MIN, 1), std::pair(1, INT32_MIN)}) {
      EXPECT_EQ(Scale(scale, source, 8, 4, width, height, 0, 0, 8, 4), Bytes());
    }
  }
}

TEST(BilinearCropScale, RightColumnsAreVerticalAndBottomRowsHorizontalMeans) {
  // 7 columns have a right neighbour, of which 6 make pairs, of which the last pair is not
  // weighted; 5 rows have a lower neighbour, of which the last is not used.
  const int32_t width = 8, height = 6;
  const Bytes source = Noise(width * height * 2);
  const Bytes out =
      Scale(CropScaleYUV16Bilinear, source, width, height, width, height, 0, 0, width, height);
  const auto luma = [&](int32_t row, int32_t column) { return source[(row * width + column) * 2]; };
  const auto chroma = [&](int32_t row, int32_t column, int32_t byte) {
    return source[(row * width + column / 2 * 2) * 2 + byte];
  };
  for (int32_t row = 0; row < height; ++row) {
    for (int32_t column = 0; column < width; ++column) {
      SCOPED_TRACE(testing::Message() << "row " << row << ", column " << column);
      const uint8_t* to = &out[(row * width + column) * 2];
      const int32_t byte = column % 2 == 0 ? 1 : 3;
      const int32_t even = column / 2 * 2;
      if (row < 4 && column < 4) {
        EXPECT_EQ(to[0], luma(row, column));
        EXPECT_EQ(to[1], chroma(row, column, byte));
      } else if (row < 4) {
        EXPECT_EQ(to[0], Mean(luma(row, column), luma(row + 1, column)));
        EXPECT_EQ(to[1], Mean(chroma(row, column, byte), chroma(row + 1, column, byte)));
      } else if (column < 6) {
        EXPECT_EQ(to[0], Mean(luma(row, column), luma(row, column + 1)));
        EXPECT_EQ(to[1], Mean(chroma(row, even, byte),
                              Mean(chroma(row, even, byte), chroma(row, even + 2, byte))));
      } else {
        EXPECT_EQ(to[0], luma(row, column));
        EXPECT_EQ(to[1], chroma(row, column, byte));
      }
    }
  }
}

TEST(BilinearCropScale, EnlargedBottomRowTakesItsRightNeighbourBehindTheRow) {
  // One pair to eight columns: 4 and 5 stand on column 1, whose neighbour is the pair behind.
  const Bytes source = {10, 100, 20, 110, /* behind the frame: */ 200, 60, 220, 70};
  const Bytes out = Scale(CropScaleYUV16Bilinear, source, 2, 1, 8, 1, 0, 0, 2, 1);
  EXPECT_EQ(out, Bytes({15, 100, 15, 110, 15, 100, 15, 110, 110, 80, 110, 90, 20, 100, 20, 110}));
}

TEST(BilinearCropScale, OneRowIsABottomRow) {
  const int32_t width = 12, height = 9;
  const Bytes source = Noise(width * height * 2);
  const Bytes out =
      Scale(CropScaleYUV16Bilinear, source, width, height, width, 1, 0, 0, width, height);
  for (int32_t column = 0; column < width; ++column) {
    const int own = source[column * 2];
    EXPECT_EQ(out[column * 2], column < 10 ? Mean(own, source[column * 2 + 2]) : own);
  }
}

TEST(BilinearCropScale, HalfwayPositionsAreMeansOfFourCorners) {
  // Luma falls by 8 a column and rises by 16 a row; doubling puts every odd sample halfway.
  const int32_t width = 16, height = 8;
  Bytes source;
  for (int32_t row = 0; row < height; ++row) {
    for (int32_t column = 0; column < width; ++column) {
      source.push_back(static_cast<uint8_t>(120 - column * 8 + row * 16));
      source.push_back(77);
    }
  }
  source.insert(source.end(), 4, 0);
  const Bytes out = Scale(CropScaleYUV16Bilinear, source, width, height, width * 2, height * 2, 0,
                          0, width, height);
  for (int32_t row = 0; row < 13; ++row) {
    for (int32_t column = 0; column < 28; ++column) {
      EXPECT_EQ(out[(row * width * 2 + column) * 2], 120 - column * 4 + row * 8);
      EXPECT_EQ(out[(row * width * 2 + column) * 2 + 1], 77);
    }
  }
}

TEST(ScaledPlane, OwnSizeIsACopy) {
  const Bytes source = Noise(37 * 11);
  EXPECT_EQ(ScalePlane(source, 37, 11, 37, 11), source);
}

TEST(ScaledPlane, OneRowIsTheFirstSourceRow) {
  const Bytes source = Noise(20 * 6);
  const Bytes out = ScalePlane(source, 20, 6, 10, 1);
  for (int32_t column = 0; column < 10; ++column) EXPECT_EQ(out[column], source[column * 2]);
}

TEST(ScaledPlane, OneColumnIsTheFirstSourceColumn) {
  const Bytes source = Noise(20 * 6);
  const Bytes out = ScalePlane(source, 20, 6, 1, 3);
  for (int32_t row = 0; row < 3; ++row) EXPECT_EQ(out[row], source[row * 2 * 20]);
}

TEST(ScaledPlane, DoublingPutsFloorMeansBetweenSamples) {
  const int32_t width = 640, height = 480;
  Bytes source = Noise(width * height + width + 1);
  const Bytes out = ScalePlane(source, width, height, width * 2, height * 2);
  const auto at = [&](int32_t row, int32_t column) { return out[row * width * 2 + column]; };
  const auto from = [&](int32_t row, int32_t column) -> int {
    return source[row * width + column];
  };
  int32_t wrong = 0;
  for (int32_t row = 0; row < height - 1; ++row) {
    for (int32_t column = 0; column < width - 1; ++column) {
      wrong += at(row * 2, column * 2) != from(row, column);
      wrong += at(row * 2, column * 2 + 1) != Mean(from(row, column), from(row, column + 1));
      wrong += at(row * 2 + 1, column * 2) != Mean(from(row, column), from(row + 1, column));
    }
  }
  EXPECT_EQ(wrong, 0);
  for (int32_t column = 0; column < width - 1; ++column) {
    // Row 958 stands exactly on source row 479; the row behind the plane has no weight.
    ASSERT_EQ(at(958, column * 2), from(479, column));
    ASSERT_EQ(at(958, column * 2 + 1), Mean(from(479, column), from(479, column + 1)));
    // The last row repeats the nearest samples.
    ASSERT_EQ(at(959, column * 2), from(479, column));
    ASSERT_EQ(at(959, column * 2 + 1), from(479, column));
  }
  for (int32_t row = 0; row < height; ++row) {
    // Column 1278 stands exactly on source column 639; the last repeats it, from the upper row.
    ASSERT_EQ(at(row * 2, 1278), from(row, 639));
    ASSERT_EQ(at(row * 2 + 1, 1279), from(row, 639));
  }
}

TEST(ScaledPlane, UniformPlaneStaysUniform) {
  const Bytes source(30 * 20 + 31, 93);
  for (const auto& [width, height] : {std::pair(61, 43), std::pair(7, 5), std::pair(200, 3)}) {
    EXPECT_EQ(ScalePlane(source, 30, 20, width, height), Bytes(size_t{1} * width * height, 93));
  }
}

TEST(CropScale, ASourceWithoutSizeWritesNothing) {
  const Bytes source = Noise(4);
  for (const auto& [width, height] :
       {std::pair(0, 1), std::pair(1, 0), std::pair(-1, -1), std::pair(-2, 1), std::pair(2, -1),
        std::pair(INT32_MIN, INT32_MIN), std::pair(INT32_MIN, 480), std::pair(640, INT32_MIN),
        std::pair(INT32_MIN, INT32_MAX), std::pair(1, 1)}) {
    SCOPED_TRACE(testing::Message() << width << " x " << height);
    EXPECT_EQ(CompareGuarded(source, Bytes(),
                             [w = width, h = height](const uint8_t* frame, uint8_t* destination) {
                               CropScaleYUV16Inside(frame, w, h, destination, 2, 2, 0, 0, w, h);
                             }),
              "");
  }
}

TEST(ScaledPlane, EmptyDestinationIsLeftAlone) {
  const Bytes source = Noise(8 * 4);
  for (const auto& [width, height] :
       {std::pair(0, 4), std::pair(4, 0), std::pair(0, 0), std::pair(-1, 4), std::pair(4, -1),
        std::pair(-6, -6), std::pair(INT32_MIN, 1), std::pair(1, INT32_MIN)}) {
    EXPECT_EQ(ScalePlane(source, 8, 4, width, height), Bytes());
  }
}

}  // namespace
}  // namespace kolm
