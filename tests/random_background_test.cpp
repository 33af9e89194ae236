// Background replacement against its references, byte for byte, on random pictures and files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "background/bitmap_conversion.h"
#include "platform/host/host_kernel.h"
#include "tests/background_files.h"
#include "tests/guarded_buffer.h"
#include "tests/guarded_run.h"
#include "tests/random_case.h"
#include "tests/reference_background.h"

namespace kolm {
namespace {

using reference::Bytes;
using Flush = GuardedBuffer::Flush;

// A guarded copy that begins `misalignment` bytes into its buffer.
struct Operand {
  Operand(const Bytes& bytes, size_t misalignment, Flush flush)
      : buffer(misalignment + bytes.size(), flush),
        start(buffer.data()),
        data(buffer.data() + misalignment) {
    std::copy(bytes.begin(), bytes.end(), data);
  }
  bool KeptTheRest() const {
    return buffer.CanaryIntact() && std::all_of(start, static_cast<const uint8_t*>(data),
                                                [](uint8_t byte) { return byte == 0; });
  }
  GuardedBuffer buffer;
  const uint8_t* start;
  uint8_t* data;
};

std::string CompareBlending(Random& random, uint32_t width, uint32_t height) {
  const size_t frameBytes = size_t{width} * height * 2;
  const bool inPlace = random.OneIn(3);
  const size_t misalignment = random.OneIn(3) ? random.Between(1, 15) : 0;
  char description[128];
  std::snprintf(description, sizeof description, "%u x %u%s, %zu bytes off", width, height,
                inPlace ? " in place" : "", misalignment);
  DescribeCase(description);
  const Bytes background = RandomPicture(random, frameBytes / 2 * 3, size_t{width} * 2);
  const Bytes live = RandomPicture(random, frameBytes, size_t{width} * 2);
  const Bytes expected = reference::BlendBackground(width, height, background, live);
  for (const Flush flush : {Flush::End, Flush::Start}) {
    Operand guardedBackground(background, misalignment, flush);
    guardedBackground.buffer.MakeReadOnly();
    for (const InstructionSet set : InstructionSets()) {
      const HeldInstructionSet held(set);
      Operand guardedLive(live, misalignment, flush);
      Operand output(Bytes(frameBytes, flush == Flush::End ? 0xA5 : 0x5A), misalignment, flush);
      if (!inPlace) guardedLive.buffer.MakeReadOnly();
      const Operand& target = inPlace ? guardedLive : output;
      Kolm_BG_AlphaBlending(width, height, guardedBackground.data, guardedLive.data, target.data);
      const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), target.data);
      if (wanted != expected.end()) {
        return std::string(Name(set)) + ": byte " + std::to_string(wanted - expected.begin()) +
               " is " + std::to_string(*got) + " instead of " + std::to_string(*wanted);
      }
      if (!target.KeptTheRest()) {
        return std::string(Name(set)) + ": bytes beside the output were written";
      }
    }
  }
  return "";
}

std::string CompareScaling(Random& random, uint32_t width, int32_t height) {
  char description[128];
  std::snprintf(description, sizeof description, "to %u x %d", width, height);
  DescribeCase(description);
  const size_t behind = reference::ReadableBehindRecord(width, height);
  const Bytes record = RandomPicture(random, kRecordBytes + behind, 1280);
  const Bytes expected =
      reference::ScaleBackground(record, width, height, Bytes(size_t{width} * height * 3));
  return CompareGuarded(record, expected, [=](const uint8_t* source, uint8_t* destination) {
    Kolm_BG_ScaleBackground(source, destination, width, height);
  });
}

class QuietDebugger : public testing::Test {
 protected:
  void SetUp() override {
    host::SetDebugSink([](const std::string&) {});
  }
  void TearDown() override { host::SetDebugSink(nullptr); }
};

using RandomBackground = QuietDebugger;

TEST_F(RandomBackground, BlendingEqualsItsReference) {
  ForEachRandomCase(1500, [](Random& random) {
    if (random.OneIn(2))
      return CompareBlending(random, random.Between(1, 40), random.Between(1, 9));
    const Size size = RandomFrameSize(random);
    return CompareBlending(random, size.width, size.height);
  });
}

TEST_F(RandomBackground, ScalingEqualsItsReference) {
  ForEachRandomCase(100, [](Random& random) {
    const auto side = [&](uint32_t from) {
      switch (random.Between(0, 4)) {
        case 0:
          return from;
        case 1:
          return random.Between(1, 12);
        case 2:
          return random.Between(from - 3, from + 3);
        default:
          return random.Between(2, from * 3 / 2);
      }
    };
    const uint32_t width = std::max(2u, side(640));
    return CompareScaling(random, width, static_cast<int32_t>(side(480)));
  });
}

class ScaledToCameraSize : public QuietDebugger, public testing::WithParamInterface<Size> {};

TEST_P(ScaledToCameraSize, EqualsItsReference) {
  ForEachRandomCase(1, [](Random& random) {
    return CompareScaling(random, GetParam().width, static_cast<int32_t>(GetParam().height));
  });
}

INSTANTIATE_TEST_SUITE_P(Sizes, ScaledToCameraSize,
                         testing::Values(Size{640, 480}, Size{1280, 720}, Size{1920, 1080},
                                         Size{176, 144}, Size{854, 480}, Size{1366, 768},
                                         Size{1280, 960}, Size{1024, 768}, Size{641, 481},
                                         Size{2, 1}, Size{2, 20000}),
                         [](const auto& size) {
                           return std::to_string(size.param.width) + "x" +
                                  std::to_string(size.param.height);
                         });

TEST(RandomBitmap, ConversionEqualsItsReference) {
  ForEachRandomCase(24, [](Random& random) {
    const int32_t pixelBytes = random.OneIn(2) ? 3 : 4;
    const bool topDown = random.OneIn(2);
    DescribeCase(std::to_string(pixelBytes) + " bytes a pixel, " +
                 (topDown ? "top down" : "bottom up"));
    const Bytes pixels = RandomPicture(random, size_t{640 * 480} * pixelBytes, 640 * pixelBytes);
    return CompareGuarded(pixels, reference::ConvertPicture(pixels, pixelBytes, topDown),
                          [=](const uint8_t* source, uint8_t* destination) {
                            ConvertPicture(source, pixelBytes,
                                           topDown ? RowOrder::TopDown : RowOrder::BottomUp,
                                           destination);
                          });
  });
}

int32_t PictureSide(Random& random, uint32_t target) {
  switch (random.Between(0, 9)) {
    case 0:
      return 1;
    case 1:
      return static_cast<int32_t>(target);
    case 2:
      return static_cast<int32_t>(random.Between(target - 1, target + 1));
    case 3:
      return static_cast<int32_t>(random.Between(target, target * 3));
    default:
      return static_cast<int32_t>(random.Between(1, 300));
  }
}

TEST(RandomBitmap, ResamplingEqualsItsReference) {
  ForEachRandomCase(40, [](Random& random) {
    StoredPicture picture = {};
    picture.pixelBytes = random.OneIn(2) ? 3 : 4;
    picture.width = PictureSide(random, 640);
    picture.height = PictureSide(random, 480);
    if (random.OneIn(10)) {
      picture.width = static_cast<int32_t>(random.Between(32760, 70000));
      picture.height = static_cast<int32_t>(random.Between(1, 4));
    } else if (random.OneIn(10)) {
      picture.width = static_cast<int32_t>(random.Between(1, 4));
      picture.height = static_cast<int32_t>(random.Between(32760, 200000));
    }
    picture.stride = static_cast<uint32_t>(picture.width * picture.pixelBytes);
    picture.stride += random.Between(0, 5);
    // Without the last row's padding; now and then without more.
    size_t bytes = size_t{picture.stride} * (picture.height - 1) +
                   size_t{1} * picture.width * picture.pixelBytes;
    if (random.OneIn(5)) bytes = bytes * random.Between(0, 99) / 100;
    char description[128];
    std::snprintf(description, sizeof description,
                  "%d x %d, %d bytes a pixel, stride %u, %zu bytes", picture.width, picture.height,
                  picture.pixelBytes, picture.stride, bytes);
    DescribeCase(description);
    picture.bytes = bytes;
    const Bytes pixels = RandomPicture(random, bytes, picture.stride);
    const Bytes expected = reference::ResamplePicture(pixels, picture.stride, picture.width,
                                                      picture.height, picture.pixelBytes);
    return CompareGuarded(pixels, expected, [=](const uint8_t* source, uint8_t* target) {
      StoredPicture stored = picture;
      stored.pixels = source;
      ResamplePicture(stored, target);
    });
  });
}

Bytes RandomBefore(Random& random) { return RandomPicture(random, kRecordBytes, 1280); }

std::string CompareBitmap(const SystemRoot& root, const Bytes& file, const Bytes& before) {
  WriteFile(root.Bitmap(), file);
  return CompareLoads(reference::LoadBitmap(file, before), [&] { return RunLoadBitmap(before); });
}

std::string Describe(const BitmapHeader& header, size_t fileBytes) {
  char text[256];
  std::snprintf(text, sizeof text,
                "type 0x%X, pixels at %u, header of %u, %d x %d, %u bits, image of %u bytes, "
                "%u colours, file of %zu bytes",
                header.type, header.pixelOffset, header.headerBytes, header.width, header.height,
                header.bitCount, header.imageBytes, header.coloursUsed, fileBytes);
  return text;
}

// A file that any reader takes.
BitmapHeader RandomHeader(Random& random) {
  BitmapHeader header;
  header.bitCount = random.OneIn(2) ? 24 : 32;
  header.width = PictureSide(random, 640);
  header.height = PictureSide(random, 480);
  const uint32_t rowBytes = (header.bitCount / 8u * header.width + 3) / 4 * 4;
  header.imageBytes = rowBytes * header.height;
  header.headerBytes = random.Pick<uint32_t>({40, 40, 52, 56, 108, 124});
  header.pixelOffset = 14 + header.headerBytes + (random.OneIn(3) ? random.Between(1, 40) : 0);
  if (random.OneIn(2)) {
    header.height = -header.height;
  } else if (random.OneIn(3)) {
    header.imageBytes = 0;
  }
  return header;
}

Bytes RandomPixels(Random& random, const BitmapHeader& header) {
  const size_t rowBytes = (size_t{header.bitCount} / 8 * header.width + 3) / 4 * 4;
  return RandomPicture(random, rowBytes * std::abs(header.height), rowBytes);
}

TEST(RandomBitmap, FilesLoadAsTheReferenceDoes) {
  const SystemRoot root;
  ForEachRandomCase(40, [&](Random& random) {
    BitmapHeader header = RandomHeader(random);
    const Bytes pixels = RandomPixels(random, header);
    if (random.OneIn(8)) {  // no place given: it follows the colours
      header.coloursUsed = random.Between(0, 30);
      header.pixelOffset = 54 + header.coloursUsed * 4;
    }
    Bytes file = BitmapFile(header, pixels);
    if (header.coloursUsed != 0) std::fill_n(file.begin() + 10, 4, 0);
    DescribeCase(Describe(header, file.size()));
    const Bytes before = RandomBefore(random);
    if (reference::LoadBitmap(file, before).status != 0) return std::string("not a valid file");
    return CompareBitmap(root, file, before);
  });
}

TEST(RandomBitmap, HostileFilesEndAsTheReferenceDoes) {
  const SystemRoot root;
  ForEachRandomCase(250, [&](Random& random) {
    BitmapHeader header = RandomHeader(random);
    header.width = static_cast<int32_t>(random.Between(1, 90));
    header.height = static_cast<int32_t>(random.Between(1, 60)) * (random.OneIn(2) ? 1 : -1);
    const Bytes pixels = RandomPixels(random, header);
    header.imageBytes = static_cast<uint32_t>(pixels.size());
    // Blocks of a few hundred MiB can be had but take their time.
    const auto anything = [&]() -> uint32_t {
      switch (random.Between(0, 4)) {
        case 0:
          return 0;
        case 1:
          return random.Between(0, 3000000);
        case 2:
          return random.Pick<uint32_t>(
              {0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFF, 0xFFFF0000});
        default:
          return random.Between(0, 40000);
      }
    };
    for (uint32_t changes = random.Between(1, 3); changes != 0; --changes) {
      switch (random.Between(0, 7)) {
        case 0:
          header.width = static_cast<int32_t>(anything());
          break;
        case 1:
          header.height = static_cast<int32_t>(anything());
          break;
        case 2:
          header.imageBytes = anything();
          break;
        case 3:
          header.coloursUsed = anything();
          break;
        case 4:
          header.bitCount = random.Pick<uint16_t>({0, 1, 4, 8, 16, 23, 25, 31, 33, 48, 64, 65535});
          break;
        case 5:
          header.headerBytes = random.Pick<uint32_t>({0, 12, 16, 39, 64, 0xFFFFFFFF});
          break;
        default:
          header.height = random.OneIn(2) ? 480 : -480;
          header.width = random.OneIn(2) ? 640 : 639;
          break;
      }
    }
    Bytes file = BitmapFile(header, pixels);
    if (random.OneIn(4)) {  // somewhere else
      const uint32_t place = anything();
      for (int i = 0; i < 4; ++i) file[10 + i] = static_cast<uint8_t>(place >> (8 * i));
      header.pixelOffset = place;
    }
    if (random.OneIn(12)) file[random.Between(0, 1)] ^= 1;
    if (random.OneIn(3)) file.resize(random.Between(0, static_cast<uint32_t>(file.size())));
    DescribeCase(Describe(header, file.size()));
    const Bytes before = RandomBefore(random);
    return CompareBitmap(root, file, before);
  });
}

TEST(RandomRecordStore, LoadsAsTheReferenceDoes) {
  const SystemRoot root;
  ForEachRandomCase(60, [&](Random& random) {
    size_t bytes = size_t{random.Between(0, 3)} * kRecordBytes;
    if (random.OneIn(2)) bytes += random.Between(0, kRecordBytes - 1);
    const uint32_t index = random.OneIn(4) ? static_cast<uint32_t>(random.Bits())
                           : random.OneIn(4)
                               ? random.Between(1, 4) + (random.Between(0, 4095) << 20)
                               : random.Between(0, 5);
    DescribeCase("record " + std::to_string(index) + " of " + std::to_string(bytes) + " bytes");
    const Bytes store = RandomPicture(random, bytes, 1280);
    WriteFile(root.Store(), store);
    const Bytes before = RandomBefore(random);
    return CompareLoads(reference::LoadRecord(store, index, before),
                        [&] { return RunLoadRecord(before, index); });
  });
}

}  // namespace
}  // namespace kolm
