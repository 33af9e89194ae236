// The three scalers against their references, byte for byte, on random pictures.
#include <gtest/gtest.h>

#include <cstdio>

#include "imaging/crop_scale_yuv16.h"
#include "imaging/scale_plane.h"
#include "tests/guarded_run.h"
#include "tests/random_case.h"
#include "tests/reference_scaling.h"

namespace kolm {
namespace {

using reference::Bytes;
using reference::Crop;

enum class Kernel { Nearest, Bilinear };

int32_t SourceSide(Random& random) {
  if (random.OneIn(60)) return static_cast<int32_t>(random.Between(30000, 32767));
  if (random.OneIn(5)) return static_cast<int32_t>(random.Between(100, 700));
  return static_cast<int32_t>(random.OneIn(3) ? random.Between(1, 9) : random.Between(1, 80));
}

int32_t DestinationSide(Random& random, int32_t from) {
  switch (random.Between(0, 5)) {
    case 0:
      return from;
    case 1:  // whole factors make positions that hit samples exactly
      return std::min(32767, from * static_cast<int32_t>(random.Between(2, 4)));
    case 2:
      return std::max(1, from / static_cast<int32_t>(random.Between(2, 4)));
    case 3:
      return static_cast<int32_t>(random.Between(1, static_cast<uint32_t>(from)));
    default:
      return static_cast<int32_t>(random.Between(1, 200));
  }
}

// Spare bytes behind the frame that a scaler may read: the pair past the last row's end where a
// column past the right edge is sampled, and the rest of the last pair of an odd source width.
size_t ReadableBehind(Kernel kernel, int32_t srcWidth, int32_t dstWidth, Crop crop) {
  if (srcWidth % 2 == 1) return 2;
  if (crop.x + crop.width < srcWidth) return 0;
  if (dstWidth % 2 == 1) return 4;
  return kernel == Kernel::Bilinear && dstWidth > crop.width ? 4 : 0;
}

std::string CompareCropScale(Random& random, Kernel kernel, int32_t srcWidth, int32_t srcHeight,
                             int32_t dstWidth, int32_t dstHeight, Crop crop) {
  char description[192];
  std::snprintf(description, sizeof description, "%d x %d at %d, %d of %d x %d to %d x %d",
                crop.width, crop.height, crop.x, crop.y, srcWidth, srcHeight, dstWidth, dstHeight);
  DescribeCase(description);
  const size_t rowBytes = static_cast<size_t>(srcWidth) * 2;
  const Bytes source = RandomPicture(
      random, rowBytes * srcHeight + ReadableBehind(kernel, srcWidth, dstWidth, crop), rowBytes);
  const Bytes expected =
      kernel == Kernel::Nearest
          ? reference::CropScaleYuv16(source, srcWidth, dstWidth, dstHeight, crop)
          : reference::CropScaleYuv16Bilinear(source, srcWidth, srcHeight, dstWidth, dstHeight,
                                              crop);
  const auto scale = kernel == Kernel::Nearest ? CropScaleYUV16 : CropScaleYUV16Bilinear;
  return CompareGuarded(source, expected, [&](const uint8_t* frame, uint8_t* destination) {
    scale(frame, srcWidth, srcHeight, destination, dstWidth, dstHeight, crop.x, crop.y, crop.width,
          crop.height);
  });
}

std::string CompareRandomCropScale(Random& random, Kernel kernel) {
  int32_t srcWidth = SourceSide(random);
  if (!random.OneIn(8)) srcWidth = std::min(32766, srcWidth + srcWidth % 2);
  int32_t srcHeight = SourceSide(random);
  if (srcWidth > 1000) srcHeight = std::min(srcHeight, 4);
  const auto part = [&](int32_t side) {
    if (random.OneIn(3)) return std::pair(0, side);
    const auto start = static_cast<int32_t>(random.Between(0, side - 1));
    const auto rest = static_cast<uint32_t>(side - start);
    return std::pair(start, static_cast<int32_t>(random.OneIn(2) ? rest : random.Between(1, rest)));
  };
  const auto [x, width] = part(srcWidth);
  const auto [y, height] = part(srcHeight);
  int32_t dstWidth = DestinationSide(random, width);
  if (!random.OneIn(6)) dstWidth = std::min(32766, dstWidth + dstWidth % 2);
  int32_t dstHeight = DestinationSide(random, height);
  if (dstWidth > 1000 && dstHeight > 1000) dstHeight = 3;
  return CompareCropScale(random, kernel, srcWidth, srcHeight, dstWidth, dstHeight,
                          {x, y, width, height});
}

std::string ComparePlane(Random& random, int32_t srcWidth, int32_t srcHeight, int32_t dstWidth,
                         int32_t dstHeight) {
  char description[128];
  std::snprintf(description, sizeof description, "plane, %d x %d to %d x %d", srcWidth, srcHeight,
                dstWidth, dstHeight);
  DescribeCase(description);
  // Only an enlargement looks past the last row or column.
  const int32_t readableBehind =
      (dstHeight > srcHeight ? srcWidth : 0) + (dstWidth > srcWidth ? 1 : 0);
  const Bytes source =
      RandomPicture(random, static_cast<size_t>(srcWidth) * srcHeight + readableBehind, srcWidth);
  return CompareGuarded(
      source, reference::ScalePlaneBilinear(source, srcWidth, srcHeight, dstWidth, dstHeight),
      [&](const uint8_t* plane, uint8_t* destination) {
        ScalePlaneBilinear(plane, srcWidth, srcHeight, destination, dstWidth, dstHeight);
      });
}

TEST(RandomScaling, CropScaleEqualsItsReference) {
  ForEachRandomCase(1500,
                    [](Random& random) { return CompareRandomCropScale(random, Kernel::Nearest); });
}

TEST(RandomScaling, BilinearCropScaleEqualsItsReference) {
  ForEachRandomCase(
      1500, [](Random& random) { return CompareRandomCropScale(random, Kernel::Bilinear); });
}

// One side of a rectangle that may leave a source of `side` pixels: start and length.
std::pair<int32_t, int32_t> AnyPart(Random& random, int32_t side) {
  const auto small = [&](int32_t least, int32_t most) {
    return least + static_cast<int32_t>(random.Between(0, static_cast<uint32_t>(most - least)));
  };
  switch (random.Between(0, 7)) {
    case 0:  // the whole, moved by one
    case 1:
      return {-1, side};
    case 2:
      return {0, side};
    case 3:  // inside
      return {small(0, side - 1), 1};
    case 4:  // across either edge
    case 5:
      return {small(-side - 3, side + 3), small(-3, 2 * side + 3)};
    case 6:  // where positions overflow
      return {static_cast<int32_t>(random.Bits() % 4) * 16384 - 3 + small(0, 6),
              static_cast<int32_t>(random.Bits() % 4) * 16384 - 3 + small(0, 6)};
    default:
      return {static_cast<int32_t>(random.Bits()), static_cast<int32_t>(random.Bits())};
  }
}

TEST(RandomScaling, AnyRectangleReadsInsideTheFrameAlone) {
  ForEachRandomCase(6000, [](Random& random) {
    int32_t srcWidth = SourceSide(random);
    if (!random.OneIn(8)) srcWidth = std::min(32766, srcWidth + srcWidth % 2);
    if (random.OneIn(200)) srcWidth = 40000;
    int32_t srcHeight = SourceSide(random);
    if (srcWidth > 1000) srcHeight = std::min(srcHeight, 4);
    if (srcWidth * srcHeight < 2) srcHeight = 2;
    const auto [x, width] = AnyPart(random, srcWidth);
    const auto [y, height] = AnyPart(random, srcHeight);
    int32_t dstWidth = random.OneIn(3) ? srcWidth : DestinationSide(random, srcWidth);
    if (!random.OneIn(6)) dstWidth += dstWidth % 2;
    int32_t dstHeight = random.OneIn(3) ? srcHeight : DestinationSide(random, srcHeight);
    if (dstWidth > 1000 || dstHeight > 1000) dstHeight = std::min(dstHeight, 5);
    char description[192];
    std::snprintf(description, sizeof description, "%d x %d at %d, %d of %d x %d to %d x %d", width,
                  height, x, y, srcWidth, srcHeight, dstWidth, dstHeight);
    DescribeCase(description);
    const Bytes source = RandomPicture(random, static_cast<size_t>(srcWidth) * srcHeight * 2,
                                       static_cast<size_t>(srcWidth) * 2);
    const Crop crop = {x, y, width, height};
    return CompareGuarded(
        source,
        reference::CropScaleYuv16Inside(source, srcWidth, srcHeight, dstWidth, dstHeight, crop),
        [&](const uint8_t* frame, uint8_t* destination) {
          CropScaleYUV16Inside(frame, srcWidth, srcHeight, destination, dstWidth, dstHeight, crop.x,
                               crop.y, crop.width, crop.height);
        });
  });
}

TEST(RandomScaling, PlaneEqualsItsReference) {
  ForEachRandomCase(1500, [](Random& random) {
    const int32_t srcWidth = SourceSide(random);
    const int32_t srcHeight = srcWidth > 1000 ? 3 : SourceSide(random);
    const int32_t dstWidth = DestinationSide(random, srcWidth);
    int32_t dstHeight = DestinationSide(random, srcHeight);
    if (dstWidth > 1000 && dstHeight > 1000) dstHeight = 3;
    return ComparePlane(random, srcWidth, srcHeight, dstWidth, dstHeight);
  });
}

class StoredBackground : public testing::TestWithParam<std::pair<int32_t, int32_t>> {};

TEST_P(StoredBackground, EqualsItsReferenceAtCameraSize) {
  ForEachRandomCase(1, [](Random& random) {
    const auto [width, height] = GetParam();
    const std::string wrong =
        CompareCropScale(random, Kernel::Bilinear, 640, 480, width, height, {0, 0, 640, 480});
    return wrong.empty() ? ComparePlane(random, 640, 480, width, height) : wrong;
  });
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, StoredBackground,
    testing::Values(std::pair(1280, 720), std::pair(1920, 1080), std::pair(176, 144),
                    std::pair(640, 480), std::pair(800, 600), std::pair(854, 480),
                    std::pair(1366, 768), std::pair(641, 481), std::pair(643, 479)),
    [](const auto& info) {
      return std::to_string(info.param.first) + "x" + std::to_string(info.param.second);
    });

TEST(RandomScaling, RowsOfALargerPictureKeepTheirSurroundings) {
  ForEachRandomCase(300, [](Random& random) {
    const auto srcWidth = static_cast<int32_t>(random.Between(1, 60) * 2);
    const auto srcHeight = static_cast<int32_t>(random.Between(1, 60));
    const auto dstWidth = static_cast<int32_t>(random.Between(1, 60) * 2);
    const auto dstHeight = static_cast<int32_t>(random.Between(1, 30));
    const size_t stride = static_cast<size_t>(dstWidth) * 2 + random.Between(0, 100);
    char description[128];
    std::snprintf(description, sizeof description, "%d x %d to %d x %d, stride %zu", srcWidth,
                  srcHeight, dstWidth, dstHeight, stride);
    DescribeCase(description);
    const Bytes source = RandomPicture(random, static_cast<size_t>(srcWidth) * srcHeight * 2,
                                       static_cast<size_t>(srcWidth) * 2);
    const Bytes scaled = reference::CropScaleYuv16(source, srcWidth, dstWidth, dstHeight,
                                                   {0, 0, srcWidth, srcHeight});
    const size_t rowBytes = static_cast<size_t>(dstWidth) * 2;
    Bytes expected((dstHeight - 1) * stride + rowBytes, 0x11);
    for (int32_t row = 0; row < dstHeight; ++row) {
      std::copy_n(scaled.begin() + row * rowBytes, rowBytes, expected.begin() + row * stride);
    }
    return CompareGuarded(source, expected, [&](const uint8_t* frame, uint8_t* destination) {
      std::fill_n(destination, expected.size(), 0x11);
      CropScaleYUV16ToRows(frame, srcWidth, srcHeight, destination, stride, dstWidth, dstHeight, 0,
                           0, srcWidth, srcHeight);
    });
  });
}

}  // namespace
}  // namespace kolm
