// Bitmap files as ImageMagick writes them, in several depths and versions of the header.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/background_files.h"
#include "tests/effect_frames.h"

namespace kolm {
namespace {

// Gives ImageMagick the picture, B, G, R, A in each pixel and rows from top to bottom, and lets it
// write the bitmap file.
void ConvertByProgram(const SystemRoot& root, const Bytes& bgra, Size size,
                      const std::string& options, const std::string& format) {
  const std::filesystem::path raw = root.Folder() / "picture.bgra";
  WriteFile(raw, bgra);
  const std::string command = "convert -size " + std::to_string(size.width) + "x" +
                              std::to_string(size.height) + " -depth 8 'bgra:" + raw.string() +
                              "' " + options + " '" + format + ":" + root.Bitmap().string() + "'";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

uint32_t HeaderField(const SystemRoot& root, size_t position, int count) {
  std::ifstream file(root.Bitmap(), std::ios::binary);
  const Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  uint32_t value = 0;
  for (int i = 0; i < count; ++i) value |= uint32_t{bytes.at(position + i)} << (8 * i);
  return value;
}

// Noise with an alpha plane of its own.
Bytes Picture(Size size) { return NoiseFrame(size.width, size.height * 2); }

struct Written {
  const char* name;
  const char* options;
  const char* format;
  uint32_t bits, headerBytes;
};

class ImageMagick : public testing::TestWithParam<Written> {};

TEST_P(ImageMagick, FilesLoad) {
  const Written& written = GetParam();
  const SystemRoot root;
  const Bytes before(kRecordBytes, 0xA5);
  for (const Size size : {Size{640, 480}, Size{321, 123}, Size{1, 1}, Size{1003, 5}}) {
    SCOPED_TRACE(size.width);
    const Bytes picture = Picture(size);
    ConvertByProgram(root, picture, size, written.options, written.format);
    if (HasFatalFailure()) return;
    ASSERT_EQ(HeaderField(root, 28, 2), written.bits);
    ASSERT_EQ(HeaderField(root, 14, 4), written.headerBytes);

    // The pixels as any bottom-up file holds them, without the program's padding.
    const uint32_t pixelBytes = written.bits / 8;
    Bytes pixels;
    for (size_t row = size.height; row-- > 0;) {
      for (size_t column = 0; column < size.width; ++column) {
        const auto pixel =
            picture.begin() + static_cast<ptrdiff_t>((row * size.width + column) * 4);
        pixels.insert(pixels.end(), pixel, pixel + pixelBytes);
      }
    }
    const auto width = static_cast<int32_t>(size.width);
    const auto height = static_cast<int32_t>(size.height);
    const auto bytes = static_cast<int32_t>(pixelBytes);
    const Bytes resampled =
        reference::ResamplePicture(pixels, size.width * pixelBytes, width, height, bytes);
    const reference::Loaded expected = {0, reference::ConvertPicture(resampled, bytes, false), {}};
    EXPECT_EQ(CompareLoads(expected, [&] { return RunLoadBitmap(before); }), "");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Programs, ImageMagick,
    testing::Values(Written{"Colour3", "-alpha off -type TrueColor", "bmp3", 24, 40},
                    Written{"Colour4", "-alpha off -type TrueColor", "bmp", 24, 124},
                    Written{"Alpha4", "-type TrueColorAlpha", "bmp", 32, 124}),
    [](const auto& written) { return std::string(written.param.name); });

class ImageMagickRefused : public testing::TestWithParam<Written> {};

TEST_P(ImageMagickRefused, FilesAreRefused) {
  const Written& written = GetParam();
  const SystemRoot root;
  const Bytes before(kRecordBytes, 0xA5);
  const Size size = {64, 48};
  ConvertByProgram(root, Picture(size), size, written.options, written.format);
  if (HasFatalFailure()) return;
  ASSERT_EQ(HeaderField(root, 28, 2), written.bits);
  const reference::Loaded expected = {static_cast<int32_t>(0xC0000001), before, {}};
  EXPECT_EQ(CompareLoads(expected, [&] { return RunLoadBitmap(before); }), "");
}

INSTANTIATE_TEST_SUITE_P(
    Programs, ImageMagickRefused,
    testing::Values(Written{"Palette", "-alpha off -type Palette -colors 200", "bmp3", 8, 40},
                    Written{"BlackAndWhite", "-alpha off -type Bilevel", "bmp3", 1, 40},
                    Written{"Bits16", "-alpha off -define bmp:subtype=RGB565", "bmp", 16, 124}),
    [](const auto& written) { return std::string(written.param.name); });

}  // namespace
}  // namespace kolm
