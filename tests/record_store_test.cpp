// The record store: which bytes land in the record, each result and debugger line, each file call.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "background/file.h"
#include "platform/host/host_kernel.h"
#include "platform/kernel_calls.h"
#include "tests/background_files.h"
#include "tests/effect_frames.h"

namespace kolm {
namespace {

using reference::Loaded;

constexpr const char16_t* kStoreName = u"\\SystemRoot\\system32\\KolmBg.img";
constexpr int32_t kDeviceError = static_cast<int32_t>(0xC0000185);

class RecordStore : public testing::Test {
 protected:
  void TearDown() override {
    host::SetFileCallObserver(nullptr);
    host::SetFileFailure(nullptr);
    EXPECT_EQ(host::DescribeOpenHandles(), "");
    EXPECT_EQ(host::DescribePoolBlocks(), "");
  }

  void Write(const Bytes& store) { WriteFile(root.Store(), store); }

  // Expects the record's first bytes to become `start`, and the rest to stay.
  void ExpectLoad(uint32_t index, const Bytes& start, int32_t status = 0,
                  const std::vector<std::string>& lines = {}) {
    Loaded expected = {status, before, lines};
    std::copy(start.begin(), start.end(), expected.record.begin());
    EXPECT_EQ(CompareLoads(expected, [&] { return RunLoadRecord(before, index); }), "");
  }

  const SystemRoot root;
  const Bytes before = Bytes(kRecordBytes, 0xA5);
};

// Noise of several records.
Bytes Records(uint32_t count) { return NoiseFrame(640, 720 * count); }

Bytes Part(const Bytes& bytes, size_t start, size_t count = kRecordBytes) {
  const size_t end = std::min(bytes.size(), start + count);
  return {bytes.begin() + static_cast<ptrdiff_t>(start),
          bytes.begin() + static_cast<ptrdiff_t>(end)};
}

TEST_F(RecordStore, RecordsAreCountedFromOne) {
  const Bytes store = Records(3);
  Write(store);
  ExpectLoad(1, Part(store, 0));
  ExpectLoad(2, Part(store, kRecordBytes));
  ExpectLoad(3, Part(store, 2 * kRecordBytes));
}

TEST_F(RecordStore, PastTheEndNothingIsRead) {
  Write(Records(2));
  ExpectLoad(3, {});
  ExpectLoad(4, {});
  ExpectLoad(2331, {});
}

TEST_F(RecordStore, RecordZeroFailsToReadAndSucceeds) {
  Write(Records(1));
  ExpectLoad(0, {}, 0, {"FileRead : Error"});
}

TEST_F(RecordStore, ARecordThatRunsPastTheEndIsReadInPart) {
  Bytes store = Records(2);
  store.resize(kRecordBytes + 1000);
  Write(store);
  ExpectLoad(2, Part(store, kRecordBytes, 1000));
  Write(Part(store, 0, 1));
  ExpectLoad(1, Part(store, 0, 1));
}

TEST_F(RecordStore, AnEmptyStoreIsNotRead) {
  Write({});
  ExpectLoad(1, {});
}

TEST_F(RecordStore, ThePositionWrapsIn32Bits) {
  const Bytes store = Records(2);
  Write(store);
  // Record 2332 would begin at 2148249600, which is negative in 32 bits.
  for (const uint32_t index : {2332u, 3000u, 0xFFFFFFFFu}) {
    ExpectLoad(index, {}, 0, {"FileRead : Error"});
  }
  // 2^20 records are a multiple of 2^32 bytes.
  ExpectLoad((1u << 20) + 1, Part(store, 0));
  ExpectLoad((3u << 20) + 2, Part(store, kRecordBytes));
}

TEST_F(RecordStore, TheLastRecordThatDoesNotWrapIsRead) {
  constexpr int64_t kStart = int64_t{2330} * static_cast<int64_t>(kRecordBytes);
  std::ofstream(root.Store(), std::ios::binary).seekp(kStart) << "the end";
  const std::string text = "the end";
  ExpectLoad(2331, Bytes(text.begin(), text.end()));
  ExpectLoad(2332, {}, 0, {"FileRead : Error"});
}

TEST_F(RecordStore, AFileThatCannotBeOpenedGivesTheOpensStatus) {
  const std::vector<std::string> line = {"FileOpen : Error"};
  ExpectLoad(1, {}, static_cast<int32_t>(0xC0000034), line);  // no such file

  Write(Records(1));
  ASSERT_EQ(chmod(root.Store().c_str(), 0), 0);
  ExpectLoad(1, {}, static_cast<int32_t>(0xC0000022), line);
  ASSERT_EQ(chmod(root.Store().c_str(), 0600), 0);

  void* other = nullptr;
  ASSERT_EQ(OpenFile(kStoreName, &other), 0);
  const Loaded loaded = RunLoadRecord(before, 1);
  EXPECT_EQ(loaded.status, static_cast<int32_t>(0xC0000043));
  EXPECT_EQ(loaded.lines, line);
  EXPECT_EQ(loaded.record, before);
  EXPECT_EQ(host::OpenHandles(), 1u);
  EXPECT_EQ(ZwClose(other), 0);
  EXPECT_EQ(RunLoadRecord(before, 1).status, 0);

  std::filesystem::remove(root.Store());
  std::filesystem::create_directory(root.Store());
  ExpectLoad(1, {}, static_cast<int32_t>(0xC00000BA), line);
  std::filesystem::remove_all(root.Folder() / "system32");
  ExpectLoad(1, {}, static_cast<int32_t>(0xC000003A), line);
}

TEST_F(RecordStore, TheNameIsFoundWithoutRegardToCase) {
  const Bytes store = Records(1);
  std::filesystem::rename(root.Folder() / "system32", root.Folder() / "System32");
  WriteFile(root.Folder() / "System32" / "KOLMBG.IMG", store);
  ExpectLoad(1, store);
}

TEST_F(RecordStore, AFailedQueryReadsNothingAndSucceeds) {
  Write(Records(1));
  host::SetFileFailure([](const host::FileCall& call) {
    return call.name == "ZwQueryInformationFile" ? kDeviceError : 0;
  });
  size_t reads = 0;
  host::SetFileCallObserver(
      [&](const host::FileCall& call) { reads += call.name == "ZwReadFile"; });
  ExpectLoad(1, {});
  EXPECT_EQ(reads, 0u);
}

TEST_F(RecordStore, AFailedReadIsLoggedAndSucceeds) {
  Write(Records(1));
  host::SetFileFailure(
      [](const host::FileCall& call) { return call.name == "ZwReadFile" ? kDeviceError : 0; });
  ExpectLoad(1, {}, 0, {"FileRead : Error"});
}

TEST_F(RecordStore, TheCloseGivesTheResult) {
  const Bytes store = Records(1);
  Write(store);
  void* left = nullptr;
  host::SetFileFailure([&](const host::FileCall& call) {
    if (call.name != "ZwClose") return 0;
    left = call.handle;
    return kDeviceError;
  });
  const Loaded loaded = RunLoadRecord(before, 1);
  host::SetFileFailure(nullptr);
  EXPECT_EQ(ZwClose(left), 0);
  EXPECT_EQ(loaded.status, kDeviceError);
  EXPECT_EQ(loaded.lines, std::vector<std::string>());
  EXPECT_EQ(loaded.record, store);
}

TEST_F(RecordStore, EveryArgumentOfItsFileCalls) {
  Write(Records(2));
  std::vector<host::FileCall> calls;
  host::SetFileCallObserver([&](const host::FileCall& call) { calls.push_back(call); });
  const uint8_t* target = nullptr;
  RunLoad(before, [&](uint8_t* record) {
    target = record;
    return Kolm_BG_LoadBackground(2, record);
  });
  host::SetFileCallObserver(nullptr);
  ASSERT_EQ(calls.size(), 4u);

  const host::FileCall& create = calls[0];
  EXPECT_EQ(create.name, "ZwCreateFile");
  EXPECT_EQ(create.handle, nullptr);
  EXPECT_EQ(create.desiredAccess, 0x80100000u);
  EXPECT_EQ(create.objectLength, 48u);
  EXPECT_EQ(create.rootDirectory, nullptr);
  EXPECT_EQ(create.objectAttributes, 0x240u);
  EXPECT_EQ(create.securityDescriptor, nullptr);
  EXPECT_EQ(create.securityQualityOfService, nullptr);
  EXPECT_EQ(create.fileName, kStoreName);
  EXPECT_EQ(create.nameLength, 62);
  EXPECT_EQ(create.nameMaximumLength, 64);
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

  const host::FileCall& read = calls[2];
  EXPECT_EQ(read.name, "ZwReadFile");
  EXPECT_EQ(read.handle, query.handle);
  EXPECT_EQ(read.event, nullptr);
  EXPECT_EQ(read.apcRoutine, nullptr);
  EXPECT_EQ(read.apcContext, nullptr);
  EXPECT_EQ(read.buffer, target);
  EXPECT_EQ(read.length, kRecordBytes);
  EXPECT_EQ(read.offset, std::optional<int64_t>(kRecordBytes));
  EXPECT_FALSE(read.hasKey);

  EXPECT_EQ(calls[3].name, "ZwClose");
  EXPECT_EQ(calls[3].handle, query.handle);
}

TEST_F(RecordStore, OffsetsOfItsReads) {
  Write(Records(1));
  std::vector<int64_t> offsets;
  host::SetFileCallObserver([&](const host::FileCall& call) {
    if (call.offset.has_value()) offsets.push_back(*call.offset);
  });
  for (const uint32_t index : {0u, 1u, 2u, 2331u, 2332u, 0xFFFFFFFFu}) RunLoadRecord(before, index);
  // Those of records 2 and 2331 lie behind the end.
  EXPECT_EQ(offsets, std::vector<int64_t>({-921600, 0, 2148249600 - 4294967296, -1843200}));
}

}  // namespace
}  // namespace kolm
