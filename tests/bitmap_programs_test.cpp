// Bitmap files as other programs write them, in several depths and versions of the header.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/background_files.h"
#include "tests/effect_frames.h"

namespace kolm {
namespace {

// Gives a program the picture, B, G, R, A in each pixel and rows from top to bottom, and lets it
// write the bitmap file. In the command RAW, SIZE and OUT stand for the picture's file, its size
// and the bitmap.
void WriteByProgram(const SystemRoot& root, const Bytes& bgra, Size size, std::string command) {
  const std::filesystem::path raw = root.Folder() / "picture.bgra";
  WriteFile(raw, bgra);
  const auto put = [&command](const std::string& word, const std::string& value) {
    command.replace(command.find(word), word.size(), value);
  };
  put("SIZE", std::to_string(size.width) + "x" + std::to_string(size.height));
  put("RAW", raw.string());
  put("OUT", root.Bitmap().string());
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
  std::string command;
  uint32_t bits, headerBytes;
};

std::string ImageMagick(const std::string& options, const std::string& format) {
  return "/usr/bin/convert -size SIZE -depth 8 'bgra:RAW' " + options + " '" + format + ":OUT'";
}

std::string Ffmpeg(const std::string& pixelFormat) {
  return "ffmpeg -loglevel error -y -f rawvideo -pix_fmt bgra -s SIZE -i 'RAW' -pix_fmt " +
         pixelFormat + " -c:v bmp -f image2 -update 1 'OUT'";
}

std::string Pillow(const std::string& mode) {
  return "/usr/bin/python3 -c '"
         "import sys; from PIL import Image; size = tuple(map(int, sys.argv[1].split(\"x\"))); "
         "data = open(sys.argv[2], \"rb\").read(); "
         "Image.frombytes(\"RGBA\", size, data, \"raw\", \"BGRA\").convert(\"" +
         mode + "\").save(sys.argv[3], \"BMP\")' SIZE 'RAW' 'OUT'";
}

class ByProgram : public testing::TestWithParam<Written> {};

TEST_P(ByProgram, FilesLoad) {
  const Written& written = GetParam();
  const SystemRoot root;
  const Bytes before(kRecordBytes, 0xA5);
  for (const Size size : {Size{640, 480}, Size{321, 123}, Size{1, 1}, Size{1003, 5}}) {
    SCOPED_TRACE(size.width);
    const Bytes picture = Picture(size);
    WriteByProgram(root, picture, size, written.command);
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
    Programs, ByProgram,
    testing::Values(
        Written{"ImageMagickColour3", ImageMagick("-alpha off -type TrueColor", "bmp3"), 24, 40},
        Written{"ImageMagickColour4", ImageMagick("-alpha off -type TrueColor", "bmp"), 24, 124},
        Written{"ImageMagickAlpha4", ImageMagick("-type TrueColorAlpha", "bmp"), 32, 124},
        Written{"FfmpegColour", Ffmpeg("bgr24"), 24, 40},
        Written{"FfmpegAlpha", Ffmpeg("bgra"), 32, 40},
        Written{"PillowColour", Pillow("RGB"), 24, 40},
        Written{"PillowAlpha", Pillow("RGBA"), 32, 40}),
    [](const auto& written) { return std::string(written.param.name); });

class ByProgramRefused : public testing::TestWithParam<Written> {};

TEST_P(ByProgramRefused, FilesAreRefused) {
  const Written& written = GetParam();
  const SystemRoot root;
  const Bytes before(kRecordBytes, 0xA5);
  const Size size = {64, 48};
  WriteByProgram(root, Picture(size), size, written.command);
  if (HasFatalFailure()) return;
  ASSERT_EQ(HeaderField(root, 28, 2), written.bits);
  const reference::Loaded expected = {static_cast<int32_t>(0xC0000001), before, {}};
  EXPECT_EQ(CompareLoads(expected, [&] { return RunLoadBitmap(before); }), "");
}

INSTANTIATE_TEST_SUITE_P(
    Programs, ByProgramRefused,
    testing::Values(Written{"ImageMagickPalette",
                            ImageMagick("-alpha off -type Palette -colors 200", "bmp3"), 8, 40},
                    Written{"ImageMagickBlackAndWhite",
                            ImageMagick("-alpha off -type Bilevel", "bmp3"), 1, 40},
                    Written{"ImageMagickBits16",
                            ImageMagick("-alpha off -define bmp:subtype=RGB565", "bmp"), 16, 124},
                    Written{"FfmpegBits16", Ffmpeg("rgb555le"), 16, 40},
                    Written{"PillowGrey", Pillow("L"), 8, 40}),
    [](const auto& written) { return std::string(written.param.name); });

}  // namespace
}  // namespace kolm
