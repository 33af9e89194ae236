// Scaling a record to the live picture's size: layout, means by hand, what is read and written.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "module/kolm.h"
#include "platform/host/host_kernel.h"
#include "tests/effect_frames.h"
#include "tests/guarded_run.h"
#include "tests/reference_background.h"

namespace kolm {
namespace {

constexpr size_t kFrameBytes = sizeof(BackgroundRecord::frame);

class BackgroundScaling : public testing::Test {
 protected:
  void SetUp() override {
    host::SetDebugSink([this](const std::string& text) { lines.push_back(text); });
  }
  void TearDown() override { host::SetDebugSink(nullptr); }

  Bytes Scale(const Bytes& record, uint32_t width, int32_t height, size_t destinationBytes) {
    return RunAlike(record, destinationBytes, [=](const uint8_t* source, uint8_t* destination) {
      EXPECT_EQ(Kolm_BG_ScaleBackground(source, destination, width, height), 0);
    });
  }

  std::vector<std::string> lines;
};

// Frame and alpha plane are noise.
Bytes NoiseRecord() { return NoiseFrame(KOLM_BACKGROUND_WIDTH, KOLM_BACKGROUND_HEIGHT * 3 / 2); }

TEST_F(BackgroundScaling, TheSameSizeKeepsTheLayout) {
  const Bytes record = NoiseRecord();
  const Bytes scaled = Scale(record, 640, 480, sizeof(BackgroundRecord));
  EXPECT_TRUE(std::equal(record.begin() + kFrameBytes, record.end(), scaled.begin() + kFrameBytes))
      << "the alpha plane changed";
  for (size_t row = 0; row < 480; ++row) {
    for (size_t column = 0; column < 640; column += 2) {
      const size_t here = (row * 640 + column) * 2;
      const auto mean = [&](size_t a, size_t b) { return (record[a] + record[b]) / 2; };
      // Which columns and rows the interpolated part leaves out.
      if (row < 478 && column < 636) {
        for (size_t i = 0; i < 4; ++i) {
          ASSERT_EQ(scaled[here + i], record[here + i]) << row << ", " << column << ", " << i;
        }
      } else if (row < 478) {
        // The right edge is the mean of a row and the next.
        for (size_t i = 0; i < 4; ++i) {
          ASSERT_EQ(scaled[here + i], mean(here + i, here + 1280 + i)) << row << ", " << column;
        }
      } else if (column < 638) {
        // The last rows are the mean of a pixel and the one to its right.
        ASSERT_EQ(scaled[here], mean(here, here + 2)) << row << ", " << column;
        ASSERT_EQ(scaled[here + 2], mean(here + 2, here + 4)) << row << ", " << column;
        for (const size_t chroma : {1u, 3u}) {
          const size_t right = mean(here + chroma, here + 4 + chroma);
          ASSERT_EQ(scaled[here + chroma], (record[here + chroma] + right) / 2)
              << row << ", " << column;
        }
      } else {
        for (size_t i = 0; i < 4; ++i) {
          ASSERT_EQ(scaled[here + i], record[here + i]) << row << ", " << column << ", " << i;
        }
      }
    }
  }
}

TEST_F(BackgroundScaling, AFlatRecordStaysFlat) {
  Bytes record = FlatFrame(640, 480, 90, 40, 200);
  record.resize(sizeof(BackgroundRecord), 33);
  for (const Size size : {Size{176, 144}, Size{320, 240}, Size{640, 480}, Size{2, 2}}) {
    Bytes expected = FlatFrame(size.width, size.height, 90, 40, 200);
    expected.resize(expected.size() / 2 * 3, 33);
    EXPECT_EQ(Scale(record, size.width, static_cast<int32_t>(size.height), expected.size()),
              expected)
        << size.width << " x " << size.height;
  }
}

struct Reach {
  uint32_t width;
  int32_t height;
  size_t behind;  // bytes that must be readable behind the record
};

class ScalingReach : public BackgroundScaling, public testing::WithParamInterface<Reach> {};

TEST_P(ScalingReach, ReadsSoFarBehindTheRecordAndNoFurther) {
  const auto [width, height, behind] = GetParam();
  ASSERT_EQ(reference::ReadableBehindRecord(width, height), behind);
  Bytes record = NoiseRecord();
  record.resize(record.size() + behind, 0xEE);
  const size_t destinationBytes = size_t{width} * height * 3;
  const Bytes expected = reference::ScaleBackground(record, width, height, Bytes(destinationBytes));
  EXPECT_EQ(Scale(record, width, height, destinationBytes), expected);
  if (behind == 0) return;
  record.pop_back();
  EXPECT_THROW(reference::ScaleBackground(record, width, height, Bytes(destinationBytes)),
               std::out_of_range);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ScalingReach,
                         testing::Values(Reach{176, 144, 0}, Reach{640, 480, 0}, Reach{640, 720, 0},
                                         Reach{1280, 480, 1}, Reach{640, 1080, 640},
                                         Reach{854, 480, 0}, Reach{1280, 720, 1},
                                         Reach{1280, 960, 641}, Reach{1366, 768, 1},
                                         Reach{1920, 1080, 641}));

TEST_F(BackgroundScaling, ZeroesBehindTheRecordWeighOnTheRowBeforeTheLast) {
  // To 1920 x 1080, row 1078 lies 7162 parts of 65536 behind the record's last row. Column 1918
  // looks right of the last column: that is the next row's first sample.
  Bytes record = FlatFrame(640, 480, 90, 40, 200);
  record.resize(sizeof(BackgroundRecord), 200);
  record.resize(record.size() + 641, 0);
  const Bytes scaled = Scale(record, 1920, 1080, size_t{1920} * 1080 * 3);
  const auto start = [&](ptrdiff_t row) { return scaled.begin() + 1920 * (1080 * 2 + row); };
  EXPECT_EQ(Bytes(start(1077), start(1077) + 1918), Bytes(1918, 200));
  EXPECT_EQ(Bytes(start(1078), start(1078) + 1918), Bytes(1918, 200 - 22));
  EXPECT_EQ(Bytes(start(1079), start(1080)), Bytes(1920, 200));
}

TEST_F(BackgroundScaling, WritesNothingForSizesWithoutAPicture) {
  const Bytes record = NoiseRecord();
  const std::pair<uint32_t, int32_t> sizes[] = {{0, 0},           {0, 480},
                                                {1, 1},           {1, 480},
                                                {640, 0},         {640, -1},
                                                {640, INT32_MIN}, {0xFFFFFFFF, 2},
                                                {0x80000000, 2},  {0x40000000, 1},
                                                {2, 1 << 29},     {32768, 32768},
                                                {65536, 16384},   {0x7FFFFFFF, INT32_MAX}};
  for (const auto& [width, height] : sizes) {
    EXPECT_EQ(CompareGuarded(record, Bytes(64, 0x11),
                             [w = width, h = height](const uint8_t* source, uint8_t* destination) {
                               std::fill_n(destination, 64, 0x11);
                               EXPECT_EQ(Kolm_BG_ScaleBackground(source, destination, w, h), 0);
                             }),
              "")
        << width << " x " << height;
  }
}

TEST_F(BackgroundScaling, PrintsOneLineAndRunsAtDispatch) {
  const Bytes record = NoiseRecord();
  Bytes destination(size_t{16} * 12 * 3);
  host::SetCallingLevel(host::kDispatchLevel);
  EXPECT_EQ(Kolm_BG_ScaleBackground(record.data(), destination.data(), 16, 12), 0);
  host::SetCallingLevel(host::kPassiveLevel);
  EXPECT_EQ(destination, reference::ScaleBackground(record, 16, 12, Bytes(destination.size())));
  EXPECT_EQ(lines, std::vector<std::string>({"Kolm: Kolm_BG_ScaleBackground\n"}));
}

}  // namespace
}  // namespace kolm
