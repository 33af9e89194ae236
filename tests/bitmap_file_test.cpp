// Bitmap files: what is loaded and what refused, each result and debugger line, each file call.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "background/file.h"
#include "platform/host/host_kernel.h"
#include "platform/kernel_calls.h"
#include "tests/background_files.h"
#include "tests/effect_frames.h"

namespace kolm {
namespace {

using reference::Loaded;

constexpr int32_t kUnsuccessful = static_cast<int32_t>(0xC0000001);
constexpr int32_t kEndOfFile = static_cast<int32_t>(0xC0000011);
constexpr int32_t kNoResources = static_cast<int32_t>(0xC000009A);
constexpr int32_t kDeviceError = static_cast<int32_t>(0xC0000185);

constexpr uint32_t kLoaderTag = 'W' | 'd' << 8 | 'm' << 16 | uint32_t{' '} << 24;

class BitmapFiles : public testing::Test {
 protected:
  void TearDown() override {
    host::SetFileCallObserver(nullptr);
    host::SetFileFailure(nullptr);
    EXPECT_EQ(host::DescribeOpenHandles(), "");
    EXPECT_EQ(host::DescribePoolBlocks(), "");
  }

  void Write(const Bytes& file) { WriteFile(root.Bitmap(), file); }

  void ExpectLoaded(const Bytes& record, const std::vector<std::string>& lines = {}) {
    EXPECT_EQ(CompareLoads({0, record, lines}, [&] { return RunLoadBitmap(before); }), "");
  }
  void ExpectRefused(int32_t status, const std::vector<std::string>& lines = {}) {
    EXPECT_EQ(CompareLoads({status, before, lines}, [&] { return RunLoadBitmap(before); }), "");
  }
  void ExpectAsReference(const Bytes& file) {
    Write(file);
    const Loaded expected = reference::LoadBitmap(file, before);
    ASSERT_EQ(expected.status, 0);
    EXPECT_EQ(CompareLoads(expected, [&] { return RunLoadBitmap(before); }), "");
  }

  const SystemRoot root;
  const Bytes before = Bytes(kRecordBytes, 0xA5);
};

uint32_t RowBytes(const BitmapHeader& header) {
  return (uint32_t{header.bitCount} / 8 * static_cast<uint32_t>(header.width) + 3) / 4 * 4;
}

Bytes NoisePixels(const BitmapHeader& header) {
  Bytes pixels = NoiseFrame(RowBytes(header), static_cast<uint32_t>(std::abs(header.height)));
  pixels.resize(pixels.size() / 2);
  return pixels;
}

BitmapHeader Header(int32_t width, int32_t height, uint16_t bitCount = 24) {
  BitmapHeader header;
  header.width = width;
  header.height = height;
  header.bitCount = bitCount;
  header.imageBytes = RowBytes(header) * static_cast<uint32_t>(std::abs(height));
  return header;
}

Bytes UpsideDown(const Bytes& pixels, size_t rowBytes) {
  Bytes turned;
  for (size_t end = pixels.size(); end != 0; end -= rowBytes) {
    turned.insert(turned.end(), pixels.begin() + static_cast<ptrdiff_t>(end - rowBytes),
                  pixels.begin() + static_cast<ptrdiff_t>(end));
  }
  return turned;
}

std::string TopDownLine(int32_t height) {
  return "Kolm: ReadDIBFile 3, " + std::to_string(height) + "\n";
}

TEST_F(BitmapFiles, BottomUpAndTopDownOfOnePictureGiveOneRecord) {
  for (const uint16_t bitCount : {24, 32}) {
    for (const auto& [width, height] : {std::pair(640, 480), std::pair(333, 77)}) {
      const BitmapHeader up = Header(width, height, bitCount);
      BitmapHeader down = up;
      down.height = -height;
      const Bytes pixels = NoisePixels(up);
      const Bytes file = BitmapFile(up, pixels);
      Write(file);
      // The resampler works on the rows as they are stored, so that only a picture of the record's
      // size may be turned without a difference.
      if (width == 640) {
        ExpectLoaded(reference::ConvertPicture(pixels, bitCount / 8, false));
        Write(BitmapFile(down, UpsideDown(pixels, RowBytes(up))));
        ExpectLoaded(reference::ConvertPicture(pixels, bitCount / 8, false), {TopDownLine(-480)});
      } else {
        ExpectAsReference(file);
        ExpectAsReference(BitmapFile(down, pixels));
      }
    }
  }
}

TEST_F(BitmapFiles, TheLastRowOfABottomUpFileIsTheRecordsFirst) {
  const BitmapHeader header = Header(640, 480);
  Bytes pixels(header.imageBytes, 0);
  std::fill(pixels.end() - 1920, pixels.end(), 255);
  Write(BitmapFile(header, pixels));
  Bytes record = FlatFrame(640, 480, 16, 128, 128);
  for (size_t i = 0; i < 1280; i += 2) record[i] = 235;
  record.resize(kRecordBytes, 255);
  ExpectLoaded(record);
}

TEST_F(BitmapFiles, ThirtyTwoBitsBringTheirAlpha) {
  const BitmapHeader header = Header(640, 480, 32);
  Bytes pixels(header.imageBytes, 255);
  for (size_t i = 0; i < pixels.size(); i += 4) pixels[i + 3] = static_cast<uint8_t>(i / 2560);
  BitmapHeader masked = header;
  masked.compression = 3;  // colour masks: not looked at
  for (const BitmapHeader& each : {header, masked}) {
    Write(BitmapFile(each, pixels));
    Bytes record = FlatFrame(640, 480, 235, 128, 128);
    for (size_t i = 0; i < size_t{640} * 480; ++i)
      record.push_back(static_cast<uint8_t>(479 - i / 640));
    ExpectLoaded(record);
  }
}

TEST_F(BitmapFiles, EveryRowPaddingIsSteppedOver) {
  for (const int32_t width : {1, 2, 3, 4, 5, 637, 638, 639, 641}) {
    const BitmapHeader header = Header(width, 9);
    ExpectAsReference(BitmapFile(header, NoisePixels(header)));
  }
}

TEST_F(BitmapFiles, PixelsBeginWhereTheHeaderSays) {
  BitmapHeader header = Header(31, 17);
  const Bytes pixels = NoisePixels(header);
  Write(BitmapFile(header, pixels));
  const Bytes record = RunLoadBitmap(before).record;
  for (const uint32_t headerBytes : {40u, 52u, 56u, 108u, 124u}) {
    for (const uint32_t gap : {0u, 1u, 1000u}) {
      header.headerBytes = headerBytes;
      header.pixelOffset = 14 + headerBytes + gap;
      Write(BitmapFile(header, pixels));
      ExpectLoaded(record);
    }
  }
}

TEST_F(BitmapFiles, WithoutAPlaceThePixelsFollowTheColours) {
  BitmapHeader header = Header(31, 17);
  const Bytes pixels = NoisePixels(header);
  Write(BitmapFile(header, pixels));
  const Bytes record = RunLoadBitmap(before).record;
  for (const uint32_t colours : {0u, 5u, 256u}) {
    header.coloursUsed = colours;
    header.pixelOffset = 54 + colours * 4;
    Bytes file = BitmapFile(header, pixels);
    std::fill_n(file.begin() + 10, 4, 0);
    Write(file);
    ExpectLoaded(record);
  }
}

TEST_F(BitmapFiles, ASizeOfZeroIsComputed) {
  for (const uint16_t bitCount : {24, 32}) {
    for (const auto& [width, height] : {std::pair(640, 480), std::pair(33, 7)}) {
      BitmapHeader header = Header(width, height, bitCount);
      const Bytes pixels = NoisePixels(header);
      Write(BitmapFile(header, pixels));
      const Bytes record = RunLoadBitmap(before).record;
      header.imageBytes = 0;
      Write(BitmapFile(header, pixels));
      ExpectLoaded(record);
      // For rows from top to bottom it is negative: nearly 4 GiB, which are not to be had.
      header.height = -height;
      Write(BitmapFile(header, pixels));
      ExpectRefused(kNoResources, {TopDownLine(-height)});
    }
  }
}

TEST_F(BitmapFiles, HugeSizesAreNotToBeHad) {
  BitmapHeader header = Header(20, 10);
  const Bytes pixels = NoisePixels(header);
  for (const uint32_t bytes : {0x80000000u, 0xFFFFF000u, 0xFFFFFFFFu}) {
    header.imageBytes = bytes;
    Write(BitmapFile(header, pixels));
    ExpectRefused(kNoResources);
  }
}

TEST_F(BitmapFiles, AWrongSizeMovesTheRows) {
  // The distance from row to row is the size divided by the height, whatever the width says.
  BitmapHeader header = Header(20, 10);
  const Bytes pixels = NoisePixels(header);
  for (const uint32_t bytes : {1u, 9u, 10u, 599u, 605u, 1000u, 100000u}) {
    header.imageBytes = bytes;
    ExpectAsReference(BitmapFile(header, pixels));
  }
  header = Header(640, 480);
  const Bytes large = NoisePixels(header);
  for (const uint32_t bytes : {1u, 921599u, 921601u, 2000000u}) {
    header.imageBytes = bytes;
    ExpectAsReference(BitmapFile(header, large));
  }
}

TEST_F(BitmapFiles, MissingPixelsAreZero) {
  for (const auto& [width, height] : {std::pair(640, 480), std::pair(100, 50)}) {
    for (const uint16_t bitCount : {24, 32}) {
      const BitmapHeader header = Header(width, height, bitCount);
      Bytes pixels = NoisePixels(header);
      const size_t whole = pixels.size();
      for (const size_t kept : {whole - 1, whole / 2, size_t{1}}) {
        pixels.resize(kept);
        Write(BitmapFile(header, pixels));
        const Loaded shortened = RunLoadBitmap(before);
        ExpectAsReference(BitmapFile(header, pixels));
        Bytes padded = pixels;
        padded.resize(whole, 0);
        Write(BitmapFile(header, padded));
        ExpectLoaded(shortened.record);
      }
      pixels.clear();
      Write(BitmapFile(header, pixels));
      ExpectRefused(kEndOfFile);
    }
  }
}

TEST_F(BitmapFiles, AnythingButABitmapIsRefused) {
  BitmapHeader header = Header(20, 10);
  for (const uint16_t type : {0, 0x4D43, 0x424D, 0x4D00}) {
    header.type = type;
    Write(BitmapFile(header, NoisePixels(header)));
    ExpectRefused(kUnsuccessful);
  }
}

TEST_F(BitmapFiles, OtherDepthsAreRefused) {
  for (const uint16_t bitCount : {0, 1, 4, 8, 16, 23}) {
    BitmapHeader header = Header(20, 10);
    header.bitCount = bitCount;
    Write(BitmapFile(header, Bytes(800)));
    ExpectRefused(kUnsuccessful);
    header.height = -10;
    Write(BitmapFile(header, Bytes(800)));
    ExpectRefused(kUnsuccessful);
  }
  // Depths of more than 24 are looked at only after the line.
  for (const uint16_t bitCount : {25, 31, 33, 48, 64, 65535}) {
    BitmapHeader header = Header(20, 10);
    header.bitCount = bitCount;
    Write(BitmapFile(header, Bytes(8000)));
    ExpectRefused(kUnsuccessful);
    header.height = -10;
    Write(BitmapFile(header, Bytes(8000)));
    ExpectRefused(kUnsuccessful, {TopDownLine(-10)});
  }
}

TEST_F(BitmapFiles, CoreHeadersAreRefused) {
  BitmapHeader header = Header(20, -10);
  header.headerBytes = 12;
  Write(BitmapFile(header, NoisePixels(header)));
  ExpectRefused(kUnsuccessful);
}

TEST_F(BitmapFiles, SizesWithoutAPictureAreRefused) {
  for (const int32_t width : {0, -1, -640, INT32_MIN}) {
    BitmapHeader header = Header(20, 10);
    header.width = width;
    Write(BitmapFile(header, Bytes(600)));
    ExpectRefused(kUnsuccessful);
  }
  BitmapHeader header = Header(20, 10);
  header.height = 0;
  Write(BitmapFile(header, Bytes(600)));
  ExpectRefused(kUnsuccessful);
  header.imageBytes = 0;
  Write(BitmapFile(header, Bytes(600)));
  ExpectRefused(kUnsuccessful);
  header = Header(20, 10);
  header.height = INT32_MIN;
  Write(BitmapFile(header, Bytes(600)));
  ExpectRefused(kUnsuccessful, {TopDownLine(INT32_MIN)});
}

TEST_F(BitmapFiles, AComputedSizeOfZeroIsRefused) {
  // 32 bits times 2^27 wrap to 0.
  BitmapHeader header = Header(20, 10, 32);
  header.width = 1 << 27;
  header.imageBytes = 0;
  Write(BitmapFile(header, Bytes(600)));
  ExpectRefused(kUnsuccessful);
}

TEST_F(BitmapFiles, EveryLengthOfAShortFile) {
  const BitmapHeader header = Header(2, 2);
  const Bytes whole = BitmapFile(header, NoisePixels(header));
  for (size_t length = 0; length <= whole.size(); ++length) {
    SCOPED_TRACE(length);
    const Bytes file(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    Write(file);
    const Loaded loaded = RunLoadBitmap(before);
    // The depth stands in bytes 28 and 29, its upper byte 0.
    const int32_t expected = length < 29 ? kUnsuccessful : length < 55 ? kEndOfFile : 0;
    EXPECT_EQ(loaded.status, expected);
    EXPECT_EQ(loaded.status, reference::LoadBitmap(file, before).status);
    EXPECT_EQ(loaded.record == before, expected != 0);
  }
}

TEST_F(BitmapFiles, PixelsPastTheEndGiveTheReadsStatus) {
  BitmapHeader header = Header(20, 10);
  for (const uint32_t place : {654u, 100000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    Bytes file = BitmapFile(header, NoisePixels(header));
    for (int i = 0; i < 4; ++i) file[10 + i] = static_cast<uint8_t>(place >> (8 * i));
    Write(file);
    ExpectRefused(kEndOfFile);
  }
}

TEST_F(BitmapFiles, AFileThatCannotBeOpenedGivesTheOpensStatus) {
  const std::vector<std::string> line = {"FileOpen : Error"};
  ExpectRefused(static_cast<int32_t>(0xC0000034), line);
  Loaded loaded = RunLoadBitmap(before, u"\\SystemRoot\\no folder\\picture.bmp");
  EXPECT_EQ(loaded.status, static_cast<int32_t>(0xC000003A));
  EXPECT_EQ(loaded.lines, line);

  const BitmapHeader header = Header(20, 10);
  Write(BitmapFile(header, NoisePixels(header)));
  ASSERT_EQ(chmod(root.Bitmap().c_str(), 0), 0);
  ExpectRefused(static_cast<int32_t>(0xC0000022), line);
  ASSERT_EQ(chmod(root.Bitmap().c_str(), 0600), 0);

  void* other = nullptr;
  ASSERT_EQ(OpenFile(SystemRoot::kBitmapName, &other), 0);
  loaded = RunLoadBitmap(before);
  EXPECT_EQ(loaded.status, static_cast<int32_t>(0xC0000043));
  EXPECT_EQ(loaded.lines, line);
  EXPECT_EQ(loaded.record, before);
  EXPECT_EQ(ZwClose(other), 0);
  EXPECT_EQ(RunLoadBitmap(before).status, 0);

  std::filesystem::remove(root.Bitmap());
  std::filesystem::create_directory(root.Bitmap());
  ExpectRefused(static_cast<int32_t>(0xC00000BA), line);
}

TEST_F(BitmapFiles, NamesAreAsLongAsACountedStringHolds) {
  size_t calls = 0;
  uint16_t length = 0, maximumLength = 0;
  host::SetFileCallObserver([&](const host::FileCall& call) {
    ++calls;
    length = call.nameLength;
    maximumLength = call.nameMaximumLength;
  });
  std::u16string path = u"\\SystemRoot\\";
  path.resize(32766, u'a');
  Loaded loaded = RunLoadBitmap(before, path.c_str());
  EXPECT_LT(loaded.status, 0);
  EXPECT_EQ(loaded.lines, std::vector<std::string>({"FileOpen : Error"}));
  EXPECT_EQ(calls, 1u);
  EXPECT_EQ(length, 65532);
  EXPECT_EQ(maximumLength, 65534);

  for (const size_t characters : {32767u, 32768u, 65536u, 100000u}) {
    path.resize(characters, u'a');
    loaded = RunLoadBitmap(before, path.c_str());
    EXPECT_EQ(loaded.status, static_cast<int32_t>(0xC0000106));
    EXPECT_EQ(loaded.lines, std::vector<std::string>({"FileOpen : Error"}));
    EXPECT_EQ(loaded.record, before);
  }
  EXPECT_EQ(calls, 1u);
}

// One file call fails, counted from 0.
class BitmapFileFailure : public BitmapFiles {
 protected:
  void FailCall(size_t which) {
    calls = 0;
    host::SetFileFailure(
        [this, which](const host::FileCall&) { return calls++ == which ? kDeviceError : 0; });
  }

  // For each of the runs that CompareLoads makes.
  void ExpectWithFailure(size_t which, const Loaded& expected) {
    EXPECT_EQ(CompareLoads(expected,
                           [&] {
                             FailCall(which);
                             return RunLoadBitmap(before);
                           }),
              "")
        << "call " << which;
    host::SetFileFailure(nullptr);
  }

  size_t calls = 0;
};

TEST_F(BitmapFileFailure, EachCallButTheClose) {
  const BitmapHeader header = Header(20, -10);
  Write(BitmapFile(header, NoisePixels(header)));
  const Bytes record = RunLoadBitmap(before).record;
  ExpectWithFailure(0, {kDeviceError, before, {"FileOpen : Error"}});
  ExpectWithFailure(1, {0, record, {TopDownLine(-10)}});  // the query's answer is not used
  ExpectWithFailure(2, {kUnsuccessful, before, {}});      // the file header
  ExpectWithFailure(3, {kUnsuccessful, before, {}});      // a header of zeros has no depth
  ExpectWithFailure(4, {kDeviceError, before, {TopDownLine(-10)}});  // the pixels
}

TEST_F(BitmapFileFailure, TheClosesStatusIsDropped) {
  const BitmapHeader header = Header(20, 10);
  Write(BitmapFile(header, NoisePixels(header)));
  const Bytes record = RunLoadBitmap(before).record;
  void* left = nullptr;
  host::SetFileFailure([&](const host::FileCall& call) {
    if (call.name != "ZwClose") return 0;
    left = call.handle;
    return kDeviceError;
  });
  const Loaded loaded = RunLoadBitmap(before);
  host::SetFileFailure(nullptr);
  EXPECT_EQ(ZwClose(left), 0);
  EXPECT_EQ(loaded.status, 0);
  EXPECT_EQ(loaded.record, record);
}

TEST_F(BitmapFiles, EachAllocationFailingOnceLeavesTheRecord) {
  // Of 640 x 480 with all its bytes only the pixels are stored, otherwise the resampled ones too.
  const std::pair<BitmapHeader, size_t> files[] = {
      {Header(640, 480), 1}, {Header(640, 480, 32), 1}, {Header(64, 48), 2}, {Header(9, 9, 32), 2}};
  for (const auto& [header, allocations] : files) {
    const Bytes file = BitmapFile(header, NoisePixels(header));
    Write(file);
    const Loaded expected = reference::LoadBitmap(file, before);
    size_t failures = 0;
    const size_t failed = host::FailEachAllocationOnce([&] {
      const Loaded loaded = RunLoadBitmap(before);
      if (loaded.status == kNoResources) {
        ++failures;
        EXPECT_EQ(loaded.record, before);
      } else {
        EXPECT_EQ(loaded.status, 0);
        EXPECT_EQ(loaded.record, expected.record);
      }
      EXPECT_EQ(loaded.lines, expected.lines);
      EXPECT_EQ(host::DescribePoolBlocks(), "");
      EXPECT_EQ(host::DescribeOpenHandles(), "");
    });
    EXPECT_EQ(failed, allocations) << header.width << " x " << header.height;
    EXPECT_EQ(failures, allocations) << header.width << " x " << header.height;
  }
}

TEST_F(BitmapFiles, EveryArgumentOfItsFileCalls) {
  BitmapHeader header = Header(20, 10);
  header.pixelOffset = 70;
  Write(BitmapFile(header, NoisePixels(header)));
  std::vector<host::FileCall> calls;
  std::vector<host::PoolBlock> blocks;  // when the pixels are read
  host::SetFileCallObserver([&](const host::FileCall& call) {
    calls.push_back(call);
    if (calls.size() == 5) blocks = host::PoolBlocks();
  });
  EXPECT_EQ(RunLoadBitmap(before).status, 0);
  host::SetFileCallObserver(nullptr);
  ASSERT_EQ(calls.size(), 6u);

  const host::FileCall& create = calls[0];
  EXPECT_EQ(create.name, "ZwCreateFile");
  EXPECT_EQ(create.handle, nullptr);
  EXPECT_EQ(create.desiredAccess, 0x80100000u);
  EXPECT_EQ(create.objectLength, 48u);
  EXPECT_EQ(create.rootDirectory, nullptr);
  EXPECT_EQ(create.objectAttributes, 0x240u);
  EXPECT_EQ(create.securityDescriptor, nullptr);
  EXPECT_EQ(create.securityQualityOfService, nullptr);
  EXPECT_EQ(create.fileName, SystemRoot::kBitmapName);
  EXPECT_EQ(create.nameLength, 23 * 2);
  EXPECT_EQ(create.nameMaximumLength, 24 * 2);
  EXPECT_FALSE(create.hasAllocationSize);
  EXPECT_EQ(create.fileAttributes, 0x80u);
  EXPECT_EQ(create.shareAccess, 0u);
  EXPECT_EQ(create.createDisposition, 1u);
  EXPECT_EQ(create.createOptions, 0x60u);
  EXPECT_EQ(create.eaBuffer, nullptr);
  EXPECT_EQ(create.eaLength, 0u);

  const host::FileCall& query = calls[1];
  EXPECT_EQ(query.name, "ZwQueryInformationFile");
  EXPECT_EQ(query.informationClass, 5);
  EXPECT_EQ(query.length, 24u);
  EXPECT_TRUE(query.informationZeroed);

  const std::pair<int64_t, uint32_t> reads[] = {{0, 14}, {14, 40}, {70, 600}};
  for (size_t i = 0; i < std::size(reads); ++i) {
    SCOPED_TRACE(i);
    const host::FileCall& read = calls[2 + i];
    EXPECT_EQ(read.name, "ZwReadFile");
    EXPECT_EQ(read.handle, query.handle);
    EXPECT_EQ(read.event, nullptr);
    EXPECT_EQ(read.apcRoutine, nullptr);
    EXPECT_EQ(read.apcContext, nullptr);
    EXPECT_EQ(read.offset, std::optional<int64_t>(reads[i].first));
    EXPECT_EQ(read.length, reads[i].second);
    EXPECT_FALSE(read.hasKey);
  }
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0].bytes, 600u);
  EXPECT_EQ(blocks[0].tag, kLoaderTag);
  EXPECT_EQ(blocks[0].address, calls[4].buffer);

  EXPECT_EQ(calls[5].name, "ZwClose");
  EXPECT_EQ(calls[5].handle, query.handle);
}

}  // namespace
}  // namespace kolm
