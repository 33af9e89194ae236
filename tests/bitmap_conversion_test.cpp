// RGB to records, by hand: colours, row order, alpha, and the resampler's positions.
#include "background/bitmap_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "module/kolm.h"
#include "tests/effect_frames.h"
#include "tests/guarded_run.h"
#include "tests/reference_background.h"

namespace kolm {
namespace {

constexpr size_t kPixels = size_t{640} * 480;
constexpr size_t kFrameBytes = sizeof(BackgroundRecord::frame);

Bytes Convert(const Bytes& pixels, int32_t pixelBytes, RowOrder order) {
  return RunAlike(pixels, sizeof(BackgroundRecord), [=](const uint8_t* source, uint8_t* record) {
    ConvertPicture(source, pixelBytes, order, record);
  });
}

Bytes Resample(const Bytes& pixels, StoredPicture picture) {
  return RunAlike(pixels, kPixels * picture.pixelBytes,
                  [=](const uint8_t* source, uint8_t* target) mutable {
                    picture.pixels = source;
                    ResamplePicture(picture, target);
                  });
}

using Pixel = std::array<uint8_t, 3>;  // B, G, R

// Columns of the one colour and the other by turns.
Bytes Striped(const Pixel& even, const Pixel& odd, const Bytes& fourth = {}) {
  Bytes pixels;
  for (size_t i = 0; i < kPixels; ++i) {
    const Pixel& pixel = i % 2 == 0 ? even : odd;
    pixels.insert(pixels.end(), pixel.begin(), pixel.end());
    if (!fourth.empty()) pixels.push_back(fourth[i % fourth.size()]);
  }
  return pixels;
}

constexpr Pixel kWhite = {255, 255, 255}, kBlack = {0, 0, 0}, kRed = {0, 0, 255},
                kBlue = {255, 0, 0}, kGreen = {0, 255, 0};

struct Colour {
  Pixel even, odd;
  std::array<uint8_t, 4> yuyv;
};

class BitmapColours : public testing::TestWithParam<Colour> {};

TEST_P(BitmapColours, AreTheirPairsBytes) {
  const Colour& colour = GetParam();
  for (const int32_t pixelBytes : {3, 4}) {
    const Bytes record =
        Convert(Striped(colour.even, colour.odd, pixelBytes == 4 ? Bytes{7} : Bytes{}), pixelBytes,
                RowOrder::TopDown);
    for (size_t i = 0; i < kFrameBytes; ++i) {
      ASSERT_EQ(record[i], colour.yuyv[i % 4]) << "byte " << i << ", " << pixelBytes;
    }
    for (size_t i = kFrameBytes; i < record.size(); ++i) {
      ASSERT_EQ(record[i], pixelBytes == 4 ? 7 : 255) << "byte " << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, BitmapColours,
    testing::Values(Colour{kWhite, kWhite, {235, 128, 235, 128}},
                    Colour{kBlack, kBlack, {16, 128, 16, 128}},
                    Colour{kRed, kRed, {82, 90, 82, 240}}, Colour{kBlue, kBlue, {41, 240, 41, 110}},
                    // 129 * 255 + 128 is 33023; -74 * 255 + 128 is -18742; -94 * 255 + 128 -23842.
                    Colour{kGreen, kGreen, {144, 54, 144, 34}},
                    // The chroma is the mean, rounded down: 112 and -38; -18 and 112.
                    Colour{kBlue, kRed, {41, 165, 82, 175}},
                    Colour{kRed, kBlue, {82, 165, 41, 175}},
                    Colour{kWhite, kBlack, {235, 128, 16, 128}}));

TEST(BitmapConversion, EveryPixelValueOfOneChannelAgainstTheOthersEnds) {
  // Luma from 16 to 235 and chroma from 16 to 240 never leave their ranges.
  Bytes pixels;
  for (size_t i = 0; i < kPixels; ++i) {
    const std::array<uint8_t, 3> ends = {static_cast<uint8_t>(i / 256 % 2 * 255),
                                         static_cast<uint8_t>(i / 512 % 2 * 255),
                                         static_cast<uint8_t>(i % 256)};
    for (size_t channel = 0; channel < 3; ++channel) {
      pixels.push_back(ends[(channel + i / 1024) % 3]);
    }
  }
  const Bytes record = Convert(pixels, 3, RowOrder::TopDown);
  EXPECT_EQ(record, reference::ConvertPicture(pixels, 3, true));
  for (size_t i = 0; i < kFrameBytes; ++i) {
    ASSERT_GE(record[i], 16);
    ASSERT_LE(record[i], i % 2 == 0 ? 235 : 240);
  }
}

TEST(BitmapConversion, BottomUpIsTopDownStoredUpsideDown) {
  for (const int32_t pixelBytes : {3, 4}) {
    const ptrdiff_t rowBytes = ptrdiff_t{640} * pixelBytes;
    Bytes pixels = NoiseFrame(640, 960);
    pixels.resize(kPixels * pixelBytes);
    Bytes upsideDown;
    for (ptrdiff_t row = 480; row-- > 0;) {
      upsideDown.insert(upsideDown.end(), pixels.begin() + row * rowBytes,
                        pixels.begin() + (row + 1) * rowBytes);
    }
    EXPECT_EQ(Convert(pixels, pixelBytes, RowOrder::TopDown),
              Convert(upsideDown, pixelBytes, RowOrder::BottomUp));
  }
}

TEST(BitmapConversion, AlphaIsTheFourthByteInTheRecordsOrder) {
  Bytes pixels(kPixels * 4);
  for (size_t i = 0; i < kPixels; ++i) pixels[i * 4 + 3] = static_cast<uint8_t>(i / 640);
  const Bytes down = Convert(pixels, 4, RowOrder::TopDown);
  const Bytes up = Convert(pixels, 4, RowOrder::BottomUp);
  for (size_t i = 0; i < kPixels; ++i) {
    ASSERT_EQ(down[kFrameBytes + i], static_cast<uint8_t>(i / 640));
    ASSERT_EQ(up[kFrameBytes + i], static_cast<uint8_t>(479 - i / 640));
  }
}

TEST(BitmapResampling, HalfTheSizeTakesMeansBetweenTheSamples) {
  Bytes pixels = NoiseFrame(320, 360);
  pixels.resize(size_t{320} * 240 * 3);
  const Bytes target = Resample(pixels, {.pixels = nullptr,
                                         .bytes = pixels.size(),
                                         .stride = 320 * 3,
                                         .width = 320,
                                         .height = 240,
                                         .pixelBytes = 3});
  const auto source = [&](size_t column, size_t row, size_t channel) {
    return int{
        pixels[(std::min<size_t>(row, 239) * 320 + std::min<size_t>(column, 319)) * 3 + channel]};
  };
  const auto floorMean = [](int a, int b) { return (a + b) >> 1; };
  for (size_t row = 0; row < 480; ++row) {
    for (size_t column = 0; column < 640; ++column) {
      const size_t x = column / 2, y = row / 2, right = x + column % 2, below = y + row % 2;
      for (size_t channel = 0; channel < 3; ++channel) {
        const int top = floorMean(source(x, y, channel), source(right, y, channel));
        const int bottom = floorMean(source(x, below, channel), source(right, below, channel));
        ASSERT_EQ(target[(row * 640 + column) * 3 + channel], floorMean(top, bottom))
            << row << ", " << column << ", " << channel;
      }
    }
  }
}

TEST(BitmapResampling, TheSameSizeCopies) {
  Bytes pixels = NoiseFrame(640, 960);
  EXPECT_EQ(Resample(pixels, {.pixels = nullptr,
                              .bytes = pixels.size(),
                              .stride = 640 * 4,
                              .width = 640,
                              .height = 480,
                              .pixelBytes = 4}),
            pixels);
}

TEST(BitmapResampling, OnePixelFillsThePicture) {
  const Bytes pixels = {1, 2, 3, 4};
  Bytes expected;
  for (size_t i = 0; i < kPixels; ++i) {
    expected.insert(expected.end(), pixels.begin(), pixels.end());
  }
  EXPECT_EQ(
      Resample(
          pixels,
          {.pixels = nullptr, .bytes = 4, .stride = 4, .width = 1, .height = 1, .pixelBytes = 4}),
      expected);
}

TEST(BitmapResampling, RowsAreAStrideApart) {
  // Padding of 0xEE must not show.
  Bytes pixels(size_t{480} * 8, 0xEE);
  for (ptrdiff_t row = 0; row < 480; ++row) {
    std::fill_n(pixels.begin() + row * 8, 6, static_cast<uint8_t>(row / 2));
  }
  const Bytes target = Resample(pixels, {.pixels = nullptr,
                                         .bytes = pixels.size(),
                                         .stride = 8,
                                         .width = 2,
                                         .height = 480,
                                         .pixelBytes = 3});
  for (size_t i = 0; i < target.size(); ++i) ASSERT_EQ(target[i], i / 1920 / 2) << i;
}

TEST(BitmapResampling, SidesAbove32767KeepTheirPositions) {
  // Column 328 lies at sample 32800, which 16.16 positions in 32 bits do not reach.
  Bytes pixels;
  for (uint32_t column = 0; column < 64000; ++column) {
    for (int channel = 0; channel < 3; ++channel) {
      pixels.push_back(static_cast<uint8_t>(column / 100 % 256));
    }
  }
  const Bytes wide = Resample(pixels, {.pixels = nullptr,
                                       .bytes = pixels.size(),
                                       .stride = 192000,
                                       .width = 64000,
                                       .height = 1,
                                       .pixelBytes = 3});
  const Bytes high = Resample(pixels, {.pixels = nullptr,
                                       .bytes = uint64_t{48000} * 3,
                                       .stride = 3,
                                       .width = 1,
                                       .height = 48000,
                                       .pixelBytes = 3});
  for (size_t row = 0; row < 480; ++row) {
    for (size_t column = 0; column < 640; ++column) {
      ASSERT_EQ(wide[(row * 640 + column) * 3], column % 256);
      ASSERT_EQ(high[(row * 640 + column) * 3], row % 256);
    }
  }
}

TEST(BitmapResampling, WhatIsNotThereIsZero) {
  EXPECT_EQ(Resample({}, {.pixels = nullptr,
                          .bytes = 0,
                          .stride = 0xFFFFFFFF,
                          .width = INT32_MAX,
                          .height = INT32_MAX,
                          .pixelBytes = 4}),
            Bytes(kPixels * 4));
}

}  // namespace
}  // namespace kolm
