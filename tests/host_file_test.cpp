// The host's file calls answer as the kernel's do, count what they open and show what they were
// asked: the tests of the background family rest on all three.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/host/host_kernel.h"
#include "platform/kernel_calls.h"

namespace kolm::host {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kUntouched = 0x5A5A5A5A;
constexpr uint32_t kSynchronous = 0x20;
constexpr uint32_t kSynchronousNonDirectory = 0x60;
constexpr uint32_t kShareRead = 1;
constexpr uint32_t kShareWrite = 2;

struct Opened {
  uint32_t status;
  void* file;
  uint32_t ioStatus;
  uintptr_t information;
};

// What a call leaves to be seen. Statuses are unsigned, to be written in hexadecimal.
struct Answer {
  uint32_t status;
  uint32_t ioStatus;
  uintptr_t information;

  bool operator==(const Answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << std::hex << "{0x" << answer.status << ", 0x" << answer.ioStatus << ", 0x"
             << answer.information << "}";
}

Answer Failure(uint32_t status) { return {status, status, 0}; }
Answer Success(uintptr_t information) { return {0, 0, information}; }

Opened OpenCounted(const CountedString& name, uint32_t share = 0,
                   uint32_t options = kSynchronousNonDirectory) {
  const ObjectAttributes attributes = {sizeof attributes, nullptr, &name, 0x240, nullptr, nullptr};
  IoStatusBlock ioStatus = {{kUntouched}, kUntouched};
  void* file = nullptr;
  const int32_t status = ZwCreateFile(&file, 0x80100000, &attributes, &ioStatus, nullptr, 0x80,
                                      share, 1, options, nullptr, 0);
  return {static_cast<uint32_t>(status), file, static_cast<uint32_t>(ioStatus.status),
          ioStatus.information};
}

Opened Open(std::u16string_view name, uint32_t share = 0,
            uint32_t options = kSynchronousNonDirectory) {
  const uint16_t bytes = static_cast<uint16_t>(name.size() * sizeof(char16_t));
  return OpenCounted({bytes, bytes, name.data()}, share, options);
}

// The answer to an open whose handle, if any, is closed again at once.
Answer TryOpen(std::u16string_view name, uint32_t share = 0,
               uint32_t options = kSynchronousNonDirectory) {
  const Opened opened = Open(name, share, options);
  EXPECT_EQ(opened.file != nullptr, opened.status == 0);
  if (opened.file != nullptr) {
    EXPECT_EQ(ZwClose(opened.file), 0);
  }
  return {opened.status, opened.ioStatus, opened.information};
}

Answer Read(void* file, void* buffer, uint32_t length, int64_t offset) {
  IoStatusBlock ioStatus = {{kUntouched}, kUntouched};
  const int32_t status =
      ZwReadFile(file, nullptr, nullptr, nullptr, &ioStatus, buffer, length, &offset, nullptr);
  return {static_cast<uint32_t>(status), static_cast<uint32_t>(ioStatus.status),
          ioStatus.information};
}

Answer Query(void* file, FileStandardInformation* information,
             uint32_t length = sizeof(FileStandardInformation),
             int32_t informationClass = kFileStandardInformation) {
  IoStatusBlock ioStatus = {{kUntouched}, kUntouched};
  const int32_t status =
      ZwQueryInformationFile(file, &ioStatus, information, length, informationClass);
  return {static_cast<uint32_t>(status), static_cast<uint32_t>(ioStatus.status),
          ioStatus.information};
}

class HostFileTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "kolm-files-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder = name;
    fs::create_directory(folder / "system32");
    setenv("KOLM_SYSTEM_ROOT", folder.c_str(), 1);
  }

  void TearDown() override {
    SetFileCallObserver(nullptr);
    SetFileFailure(nullptr);
    SetCallingLevel(kPassiveLevel);
    EXPECT_EQ(DescribeOpenHandles(), "");
    EXPECT_EQ(OpenHandles(), 0u);
    unsetenv("KOLM_SYSTEM_ROOT");
    fs::remove_all(folder);
  }

  fs::path Write(const fs::path& name, std::string_view text) const {
    std::ofstream(folder / name, std::ios::binary) << text;
    return folder / name;
  }

  // A file by its full name.
  std::u16string MachineName(const fs::path& name) const {
    std::u16string full = u"\\??\\Z:" + (folder / name).u16string();
    std::replace(full.begin(), full.end(), u'/', u'\\');
    return full;
  }

  fs::path folder;
};

using HostFileDeathTest = HostFileTest;

// ---- Names ----

TEST_F(HostFileTest, SystemRootIsTheFolderOfTheEnvironment) {
  Write("system32/Store.img", "0123");
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\system32\\Store.img"), Success(1));
  EXPECT_EQ(TryOpen(u"\\systemroot\\SYSTEM32\\STORE.IMG"), Success(1));
  setenv("KOLM_SYSTEM_ROOT", (folder / "system32").c_str(), 1);
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\Store.img"), Success(1));
}

TEST_F(HostFileTest, WithoutSystemRootNothingIsFoundThere) {
  Write("system32/Store.img", "0123");
  for (const char* root : {"missing", "system32/Store.img"}) {
    setenv("KOLM_SYSTEM_ROOT", (folder / root).c_str(), 1);
    EXPECT_EQ(TryOpen(u"\\SystemRoot\\system32\\Store.img"), Failure(0xC000003A)) << root;
  }
  unsetenv("KOLM_SYSTEM_ROOT");
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\system32\\Store.img"), Failure(0xC000003A));
}

TEST_F(HostFileTest, DriveZIsTheMachinesRoot) {
  Write("picture.bmp", "BM");
  EXPECT_EQ(TryOpen(MachineName("picture.bmp")), Success(1));
  std::u16string lowerCase = MachineName("picture.bmp");
  lowerCase[4] = u'z';
  EXPECT_EQ(TryOpen(lowerCase), Success(1));
}

TEST_F(HostFileTest, OtherRootsAreNotThere) {
  for (const std::u16string_view name :
       {u"\\??\\C:\\picture.bmp", u"\\Device\\Null", u"\\SystemRootless\\a", u"\\SystemRoot",
        u"\\??\\Z:", u"\\??\\Z:picture.bmp", u"\\"}) {
    EXPECT_EQ(TryOpen(name), Failure(0xC000003A)) << fs::path(name);
  }
}

TEST_F(HostFileTest, NamesBeginWithABackslash) {
  Write("a", "x");
  for (const std::u16string_view name : {u"", u"a", u"SystemRoot\\a", u"/SystemRoot/a", u"Z:\\a"}) {
    EXPECT_EQ(TryOpen(name), Failure(0xC000003B)) << fs::path(name);
  }
}

TEST_F(HostFileTest, ComponentsThatNoFileCanHave) {
  Write("a", "x");
  Write("system32/a", "x");
  for (const std::u16string_view name :
       {u"\\SystemRoot\\.\\a", u"\\SystemRoot\\system32\\..\\a", u"\\SystemRoot\\\\a",
        u"\\SystemRoot\\system32/a", u"\\SystemRoot\\*", u"\\SystemRoot\\?", u"\\SystemRoot\\a:b",
        u"\\SystemRoot\\a\x1F", u"\\SystemRoot\\a\\", u"\\SystemRoot\\\xD800"}) {
    EXPECT_EQ(TryOpen(name), Failure(0xC0000033)) << name.size();
  }
  EXPECT_EQ(TryOpen(std::u16string_view(u"\\SystemRoot\\a\0", 14)), Failure(0xC0000033));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\" + std::u16string(256, u'a')), Failure(0xC0000033));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\" + std::u16string(255, u'a')), Failure(0xC0000034));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\" + std::u16string(255, u'\u00E4')), Failure(0xC0000034));
}

TEST_F(HostFileTest, LengthDecidesWhereANameEnds) {
  Write("abc", "x");
  const std::u16string name = u"\\SystemRoot\\abcdef";
  const uint16_t maximum = static_cast<uint16_t>(name.size() * sizeof(char16_t));
  const Opened opened = OpenCounted({30, maximum, name.data()});
  ASSERT_EQ(opened.status, 0u);
  EXPECT_EQ(ZwClose(opened.file), 0);
  EXPECT_EQ(OpenCounted({28, maximum, name.data()}).status, 0xC0000034);
  EXPECT_EQ(OpenCounted({29, maximum, name.data()}).status, 0xC0000033);
}

// At an odd address, in memory that ends with the last character.
TEST_F(HostFileTest, NamesNeedNeitherAlignmentNorAZero) {
  Write("abc", "x");
  const std::u16string_view name = u"\\SystemRoot\\abc";
  std::vector<char> bytes(1 + name.size() * sizeof(char16_t));
  std::memcpy(bytes.data() + 1, name.data(), bytes.size() - 1);
  const uint16_t length = static_cast<uint16_t>(bytes.size() - 1);
  const Opened opened =
      OpenCounted({length, length, reinterpret_cast<const char16_t*>(bytes.data() + 1)});
  ASSERT_EQ(opened.status, 0u);
  EXPECT_EQ(ZwClose(opened.file), 0);
}

TEST_F(HostFileTest, CaseMattersOnlyToChooseAmongFiles) {
  Write("name", "lower");
  Write("Name", "Mixed case");
  const auto size = [](std::u16string_view name) {
    const Opened opened = Open(name);
    FileStandardInformation information = {};
    EXPECT_EQ(Query(opened.file, &information), Success(24));
    EXPECT_EQ(ZwClose(opened.file), 0);
    return information.endOfFile;
  };
  EXPECT_EQ(size(u"\\SystemRoot\\name"), 5);
  EXPECT_EQ(size(u"\\SystemRoot\\Name"), 10);
  EXPECT_GE(size(u"\\SystemRoot\\NAME"), 5);
}

TEST_F(HostFileTest, CaseBeyondAscii) {
  Write("\u00DCbung \u0416\u20AC.bmp", "x");
  Write("smile \U0001F600.bmp", "x");
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\\u00DCbung \u0416\u20AC.bmp"), Success(1));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\\u00FCBUNG \u0436\u20AC.BMP"), Success(1));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\Ubung \u0416\u20AC.bmp"), Failure(0xC0000034));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\SMILE \U0001F600.bmp"), Success(1));
}

TEST_F(HostFileTest, FileNamesThatAreNotUtf8AreNoMatch) {
  Write("\xFF\xFE", "x");
  Write("b", "x");
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\B"), Success(1));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\c"), Failure(0xC0000034));
}

// ---- Opening ----

TEST_F(HostFileTest, MissingFileOrFolder) {
  Write("file", "x");
  fs::create_symlink("nowhere", folder / "broken");
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\missing"), Failure(0xC0000034));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\system32\\missing"), Failure(0xC0000034));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\broken"), Failure(0xC0000034));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\missing\\"), Failure(0xC0000034));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\missing\\file"), Failure(0xC000003A));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\missing\\folder\\file"), Failure(0xC000003A));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\broken\\file"), Failure(0xC000003A));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file\\file"), Failure(0xC000003A));
  EXPECT_EQ(TryOpen(MachineName("missing/file")), Failure(0xC000003A));
}

TEST_F(HostFileTest, FoldersAreRefusedOrOpenedAsAsked) {
  for (const std::u16string_view name :
       {u"\\SystemRoot\\system32", u"\\SystemRoot\\system32\\", u"\\SystemRoot\\", u"\\??\\Z:\\"}) {
    EXPECT_EQ(TryOpen(name), Failure(0xC00000BA)) << fs::path(name);
    EXPECT_EQ(TryOpen(name, 0, kSynchronous), Success(1)) << fs::path(name);
  }
  const Opened opened = Open(u"\\SystemRoot\\system32", 0, kSynchronous);
  FileStandardInformation information = {};
  EXPECT_EQ(Query(opened.file, &information), Success(24));
  EXPECT_EQ(information.directory, 1);
  EXPECT_EQ(information.endOfFile, 0);
  uint8_t byte = 0;
  EXPECT_EQ(Read(opened.file, &byte, 1, 0), Failure(0xC0000010));
  EXPECT_EQ(ZwClose(opened.file), 0);
}

TEST_F(HostFileTest, PermissionIsAskedOfRootToo) {
  const fs::path path = Write("closed", "x");
  for (const mode_t mode : {0000, 0200, 0333, 0044}) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    EXPECT_EQ(TryOpen(u"\\SystemRoot\\closed"), Failure(0xC0000022)) << mode;
  }
  ASSERT_EQ(chmod(path.c_str(), 0400), 0);
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\closed"), Success(1));
}

TEST_F(HostFileTest, APipeIsNoFile) {
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\pipe"), Failure(0xC0000024));
}

TEST_F(HostFileTest, WithoutSharingAFileIsOpenOnce) {
  Write("file", "x");
  Write("other", "x");
  fs::create_hard_link(folder / "file", folder / "link");
  const Opened opened = Open(u"\\SystemRoot\\file");
  ASSERT_EQ(opened.status, 0u);
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file"), Failure(0xC0000043));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\FILE", kShareRead), Failure(0xC0000043));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\link"), Failure(0xC0000043));
  EXPECT_EQ(TryOpen(MachineName("file")), Failure(0xC0000043));
  std::thread([] { EXPECT_EQ(TryOpen(u"\\SystemRoot\\file"), Failure(0xC0000043)); }).join();
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\other"), Success(1));
  EXPECT_EQ(ZwClose(opened.file), 0);
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file"), Success(1));
}

TEST_F(HostFileTest, ReadersShareIfAllOfThemSaySo) {
  Write("file", "x");
  const Opened opened = Open(u"\\SystemRoot\\file", kShareRead);
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file", kShareRead), Success(1));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file", kShareRead | kShareWrite), Success(1));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file", kShareWrite), Failure(0xC0000043));
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file"), Failure(0xC0000043));
  EXPECT_EQ(ZwClose(opened.file), 0);
}

TEST_F(HostFileTest, AFailedOpenLeavesTheHandleAsItWas) {
  const std::u16string_view text = u"\\SystemRoot\\missing";
  const uint16_t bytes = static_cast<uint16_t>(text.size() * sizeof(char16_t));
  const CountedString name = {bytes, bytes, text.data()};
  ObjectAttributes attributes = {sizeof attributes, nullptr, &name, 0x240, nullptr, nullptr};
  IoStatusBlock ioStatus = {};
  int marker = 0;
  void* file = &marker;
  const auto open = [&] {
    return static_cast<uint32_t>(ZwCreateFile(&file, 0x80100000, &attributes, &ioStatus, nullptr,
                                              0x80, 0, 1, 0x60, nullptr, 0));
  };
  EXPECT_EQ(open(), 0xC0000034);
  EXPECT_EQ(file, &marker);
  Write("missing", "x");
  attributes.length = 40;
  EXPECT_EQ(open(), 0xC000000D);
  EXPECT_EQ(file, &marker);
}

TEST_F(HostFileDeathTest, OnlyReadingIsToBeHad) {
  Write("file", "x");
  const std::u16string_view text = u"\\SystemRoot\\file";
  const uint16_t bytes = static_cast<uint16_t>(text.size() * sizeof(char16_t));
  const CountedString name = {bytes, bytes, text.data()};
  const auto create = [&name](uint32_t access, void* root, uint32_t disposition, uint32_t options,
                              void* ea) {
    const ObjectAttributes attributes = {sizeof attributes, root, &name, 0x240, nullptr, nullptr};
    IoStatusBlock ioStatus = {};
    void* file = nullptr;
    ZwCreateFile(&file, access, &attributes, &ioStatus, nullptr, 0x80, 0, disposition, options, ea,
                 0);
  };
  int some = 0;
  EXPECT_DEATH(create(0xC0100000, nullptr, 1, 0x60, nullptr), "access 0xc0100000");
  EXPECT_DEATH(create(0x80100000, nullptr, 3, 0x60, nullptr), "disposition 3");
  EXPECT_DEATH(create(0x80100000, nullptr, 1, 0x40, nullptr), "options 0x40");
  EXPECT_DEATH(create(0x80100000, nullptr, 1, 0x61, nullptr), "options 0x61");
  EXPECT_DEATH(create(0x80100000, &some, 1, 0x60, nullptr), "root directory 0x");
  EXPECT_DEATH(create(0x80100000, nullptr, 1, 0x60, &some), "extended attributes 0x");
}

// ---- Querying ----

TEST_F(HostFileTest, StandardInformation) {
  Write("file", std::string(5000, 'x'));
  Write("empty", "");
  fs::create_hard_link(folder / "file", folder / "link");
  Opened opened = Open(u"\\SystemRoot\\file");
  FileStandardInformation information;
  std::memset(&information, 0x77, sizeof information);
  EXPECT_EQ(Query(opened.file, &information), Success(24));
  EXPECT_EQ(information.endOfFile, 5000);
  EXPECT_EQ(information.allocationSize % 512, 0);
  EXPECT_EQ(information.numberOfLinks, 2u);
  EXPECT_EQ(information.deletePending, 0);
  EXPECT_EQ(information.directory, 0);
  EXPECT_EQ(ZwClose(opened.file), 0);

  opened = Open(u"\\SystemRoot\\empty");
  EXPECT_EQ(Query(opened.file, &information), Success(24));
  EXPECT_EQ(information.endOfFile, 0);
  EXPECT_EQ(information.allocationSize, 0);
  EXPECT_EQ(information.numberOfLinks, 1u);
  EXPECT_EQ(ZwClose(opened.file), 0);
}

TEST_F(HostFileTest, QueriesThatFailStoreNothing) {
  Write("file", "x");
  const Opened opened = Open(u"\\SystemRoot\\file");
  FileStandardInformation information = {-1, -2, 3, 4, 5};
  EXPECT_EQ(Query(opened.file, &information, 24, 4), Failure(0xC0000003));
  EXPECT_EQ(Query(opened.file, &information, 24, 0), Failure(0xC0000003));
  EXPECT_EQ(Query(opened.file, &information, 23), Failure(0xC0000004));
  EXPECT_EQ(Query(opened.file, &information, 0), Failure(0xC0000004));
  EXPECT_EQ(Query(nullptr, &information), Failure(0xC0000008));
  EXPECT_EQ(Query(&information, &information), Failure(0xC0000008));
  EXPECT_EQ(ZwClose(opened.file), 0);
  EXPECT_EQ(Query(opened.file, &information), Failure(0xC0000008));
  EXPECT_EQ(information.allocationSize, -1);
  EXPECT_EQ(information.endOfFile, -2);
  EXPECT_EQ(information.numberOfLinks, 3u);
  EXPECT_EQ(information.deletePending, 4);
  EXPECT_EQ(information.directory, 5);
}

TEST_F(HostFileTest, InformationMayHaveMoreRoom) {
  Write("file", "xyz");
  const Opened opened = Open(u"\\SystemRoot\\file");
  FileStandardInformation information[2] = {};
  EXPECT_EQ(Query(opened.file, information, sizeof information), Success(24));
  EXPECT_EQ(information[0].endOfFile, 3);
  EXPECT_EQ(information[1].endOfFile, 0);
  EXPECT_EQ(ZwClose(opened.file), 0);
}

// ---- Reading ----

class HostFileReadTest : public HostFileTest {
 protected:
  void SetUp() override {
    HostFileTest::SetUp();
    Write("digits", "0123456789");
    file = Open(u"\\SystemRoot\\digits").file;
    ASSERT_NE(file, nullptr);
  }

  void TearDown() override {
    EXPECT_EQ(ZwClose(file), 0);
    HostFileTest::TearDown();
  }

  void* file = nullptr;
  char text[13] = "............";
};

using HostFileReadDeathTest = HostFileReadTest;

TEST_F(HostFileReadTest, WhereAsked) {
  EXPECT_EQ(Read(file, text, 4, 3), Success(4));
  EXPECT_STREQ(text, "3456........");
  EXPECT_EQ(Read(file, text, 10, 0), Success(10));
  EXPECT_STREQ(text, "0123456789..");
}

TEST_F(HostFileReadTest, ShortAtTheEnd) {
  EXPECT_EQ(Read(file, text, 12, 0), Success(10));
  EXPECT_STREQ(text, "0123456789..");
  EXPECT_EQ(Read(file, text, 5, 9), Success(1));
  EXPECT_STREQ(text, "9123456789..");
}

TEST_F(HostFileReadTest, NothingAtTheEndOrBehindIt) {
  EXPECT_EQ(Read(file, text, 1, 10), Failure(0xC0000011));
  EXPECT_EQ(Read(file, text, 12, 11), Failure(0xC0000011));
  EXPECT_EQ(Read(file, text, 12, INT64_MAX), Failure(0xC0000011));
  EXPECT_STREQ(text, "............");
}

TEST_F(HostFileReadTest, NothingBeforeTheBeginning) {
  EXPECT_EQ(Read(file, text, 12, -1), Failure(0xC000000D));
  EXPECT_EQ(Read(file, text, 12, -921600), Failure(0xC000000D));
  EXPECT_EQ(Read(file, text, 0, -921600), Failure(0xC000000D));
  EXPECT_EQ(Read(file, text, 12, INT64_MIN), Failure(0xC000000D));
  EXPECT_STREQ(text, "............");
}

TEST_F(HostFileReadTest, NoBytesAreASuccessAnywhere) {
  EXPECT_EQ(Read(file, text, 0, 0), Success(0));
  EXPECT_EQ(Read(file, text, 0, 10), Success(0));
  EXPECT_EQ(Read(file, nullptr, 0, 100), Success(0));
  EXPECT_STREQ(text, "............");
}

TEST_F(HostFileReadTest, HandlesThatAreNone) {
  EXPECT_EQ(Read(nullptr, text, 1, 0), Failure(0xC0000008));
  EXPECT_EQ(Read(text, text, 1, 0), Failure(0xC0000008));
  Write("other", "x");
  const Opened other = Open(u"\\SystemRoot\\other");
  EXPECT_EQ(ZwClose(other.file), 0);
  EXPECT_EQ(Read(other.file, text, 1, 0), Failure(0xC0000008));
  EXPECT_STREQ(text, "............");
}

TEST_F(HostFileReadTest, AsLongAsTheFileIsNow) {
  std::ofstream(folder / "digits", std::ios::app) << "AB";
  EXPECT_EQ(Read(file, text, 12, 8), Success(4));
  EXPECT_STREQ(text, "89AB........");
  fs::resize_file(folder / "digits", 9);
  EXPECT_EQ(Read(file, text, 12, 8), Success(1));
}

// The system's own check of the memory, without a fault in the module.
TEST_F(HostFileReadDeathTest, IntoMemoryThatIsNotThere) {
  void* const pages = mmap(nullptr, 8192, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  ASSERT_EQ(mprotect(pages, 4096, PROT_READ | PROT_WRITE), 0);
  char* const end = static_cast<char*>(pages) + 4096;
  EXPECT_EQ(Read(file, end - 10, 10, 0), Success(10));
  EXPECT_EQ(Read(file, end - 2, 100, 8), Success(2));
  EXPECT_DEATH(Read(file, end - 9, 10, 0), "ZwReadFile: 10 bytes do not fit at 0x");
  EXPECT_DEATH(Read(file, end, 1, 0), "ZwReadFile: 1 bytes do not fit at 0x");
  munmap(pages, 8192);
}

TEST_F(HostFileReadDeathTest, OnlyThePlainKindIsToBeHad) {
  IoStatusBlock ioStatus = {};
  const int64_t offset = 0;
  const uint32_t key = 0;
  const char* message = "ZwReadFile: event, routine, context, key or no offset";
  const auto read = [&](void* event, void* routine, void* context, const int64_t* at,
                        const uint32_t* withKey) {
    ZwReadFile(file, event, routine, context, &ioStatus, text, 1, at, withKey);
  };
  EXPECT_DEATH(read(text, nullptr, nullptr, &offset, nullptr), message);
  EXPECT_DEATH(read(nullptr, text, nullptr, &offset, nullptr), message);
  EXPECT_DEATH(read(nullptr, nullptr, text, &offset, nullptr), message);
  EXPECT_DEATH(read(nullptr, nullptr, nullptr, nullptr, nullptr), message);
  EXPECT_DEATH(read(nullptr, nullptr, nullptr, &offset, &key), message);
}

// ---- Handles ----

TEST_F(HostFileTest, HandlesAreCountedAndDescribed) {
  Write("one", "x");
  Write("two", "x");
  EXPECT_EQ(OpenHandles(), 0u);
  const Opened one = Open(u"\\SystemRoot\\one");
  EXPECT_EQ(OpenHandles(), 1u);
  const Opened two = Open(MachineName("two"));
  EXPECT_EQ(OpenHandles(), 2u);
  EXPECT_NE(one.file, two.file);
  const std::string description = DescribeOpenHandles();
  EXPECT_NE(description.find("file \\SystemRoot\\one, opened at\n  "), std::string::npos);
  EXPECT_NE(description.find("\\two, opened at\n  "), std::string::npos);
  EXPECT_EQ(ZwClose(one.file), 0);
  EXPECT_EQ(OpenHandles(), 1u);
  EXPECT_EQ(DescribeOpenHandles().find("\\one"), std::string::npos);
  EXPECT_EQ(ZwClose(two.file), 0);
  EXPECT_EQ(DescribeOpenHandles(), "");
}

TEST_F(HostFileTest, RefusedFilesLeaveNoDescriptorOpen) {
  Write("file", "x");
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const Opened opened = Open(u"\\SystemRoot\\file");
  const ptrdiff_t before = descriptors();
  TryOpen(u"\\SystemRoot\\file");
  TryOpen(u"\\SystemRoot\\system32");
  TryOpen(u"\\SystemRoot\\missing");
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(ZwClose(opened.file), 0);
  EXPECT_EQ(descriptors(), before - 1);
}

TEST_F(HostFileTest, ClosingWhatWasNeverOpen) {
  int some = 0;
  EXPECT_EQ(static_cast<uint32_t>(ZwClose(nullptr)), 0xC0000008);
  EXPECT_EQ(static_cast<uint32_t>(ZwClose(&some)), 0xC0000008);
}

TEST_F(HostFileDeathTest, ClosingTwice) {
  Write("file", "x");
  const Opened first = Open(u"\\SystemRoot\\file");
  EXPECT_EQ(ZwClose(first.file), 0);
  EXPECT_DEATH(ZwClose(first.file), "ZwClose: handle 0x.* closed twice");
  const Opened second = Open(u"\\SystemRoot\\file");
  EXPECT_NE(second.file, first.file);
  EXPECT_DEATH(ZwClose(first.file), "closed twice");
  EXPECT_EQ(ZwClose(second.file), 0);
}

TEST_F(HostFileDeathTest, AllCallsDemandPassiveLevel) {
  Write("file", "x");
  const Opened opened = Open(u"\\SystemRoot\\file");
  FileStandardInformation information = {};
  for (const uint8_t level : {kApcLevel, kDispatchLevel}) {
    SetCallingLevel(level);
    const std::string message = " called at level " + std::to_string(level) + ", highest is 0";
    EXPECT_DEATH(Open(u"\\SystemRoot\\file"), "ZwCreateFile" + message);
    EXPECT_DEATH(Query(opened.file, &information), "ZwQueryInformationFile" + message);
    EXPECT_DEATH(Read(opened.file, &information, 1, 0), "ZwReadFile" + message);
    EXPECT_DEATH(ZwClose(opened.file), "ZwClose" + message);
  }
  SetCallingLevel(kPassiveLevel);
  EXPECT_EQ(ZwClose(opened.file), 0);
}

// ---- Watching and failing ----

TEST_F(HostFileTest, TheObserverSeesEveryArgument) {
  Write("file", "0123456789");
  std::vector<FileCall> calls;
  SetFileCallObserver([&](const FileCall& call) { calls.push_back(call); });

  const char16_t text[] = u"\\SystemRoot\\file";
  const CountedString name = {32, 34, text};
  int descriptor = 0;
  int quality = 0;
  const ObjectAttributes attributes = {48, nullptr, &name, 0x240, &descriptor, &quality};
  IoStatusBlock ioStatus = {};
  const int64_t allocation = 5;
  void* file = nullptr;
  ASSERT_EQ(ZwCreateFile(&file, 0x80100000, &attributes, &ioStatus, &allocation, 0x81, 7, 1, 0x60,
                         nullptr, 0),
            0);
  FileStandardInformation information[2] = {};
  Query(file, information, 48, 5);
  information[1].directory = 1;
  Query(file, information, 48, 5);
  Query(file, &information[1], 24, 6);
  uint8_t bytes[3];
  Read(file, bytes, 3, 7);
  ZwClose(file);

  ASSERT_EQ(calls.size(), 6u);
  EXPECT_EQ(calls[0].name, "ZwCreateFile");
  EXPECT_EQ(calls[0].handle, nullptr);
  EXPECT_EQ(calls[0].desiredAccess, 0x80100000);
  EXPECT_EQ(calls[0].objectLength, 48u);
  EXPECT_EQ(calls[0].rootDirectory, nullptr);
  EXPECT_EQ(calls[0].objectAttributes, 0x240u);
  EXPECT_EQ(calls[0].securityDescriptor, &descriptor);
  EXPECT_EQ(calls[0].securityQualityOfService, &quality);
  EXPECT_EQ(calls[0].fileName, u"\\SystemRoot\\file");
  EXPECT_EQ(calls[0].nameLength, 32);
  EXPECT_EQ(calls[0].nameMaximumLength, 34);
  EXPECT_TRUE(calls[0].hasAllocationSize);
  EXPECT_EQ(calls[0].fileAttributes, 0x81u);
  EXPECT_EQ(calls[0].shareAccess, 7u);
  EXPECT_EQ(calls[0].createDisposition, 1u);
  EXPECT_EQ(calls[0].createOptions, 0x60u);
  EXPECT_EQ(calls[0].eaBuffer, nullptr);
  EXPECT_EQ(calls[0].eaLength, 0u);

  for (size_t i = 1; i < 4; ++i) {
    EXPECT_EQ(calls[i].name, "ZwQueryInformationFile");
    EXPECT_EQ(calls[i].handle, file);
    EXPECT_EQ(calls[i].buffer, i < 3 ? &information[0] : &information[1]);
    EXPECT_EQ(calls[i].length, i < 3 ? 48u : 24u);
    EXPECT_EQ(calls[i].informationClass, i < 3 ? 5 : 6);
    EXPECT_EQ(calls[i].informationZeroed, i == 1);
  }

  EXPECT_EQ(calls[4].name, "ZwReadFile");
  EXPECT_EQ(calls[4].handle, file);
  EXPECT_EQ(calls[4].event, nullptr);
  EXPECT_EQ(calls[4].apcRoutine, nullptr);
  EXPECT_EQ(calls[4].apcContext, nullptr);
  EXPECT_EQ(calls[4].buffer, bytes);
  EXPECT_EQ(calls[4].length, 3u);
  EXPECT_EQ(calls[4].offset, 7);
  EXPECT_FALSE(calls[4].hasKey);

  EXPECT_EQ(calls[5].name, "ZwClose");
  EXPECT_EQ(calls[5].handle, file);
}

// Calls that would end the process are let fail before they do.
TEST_F(HostFileTest, TheObserverSeesWhatIsNotToBeHad) {
  FileCall last;
  SetFileCallObserver([&](const FileCall& call) { last = call; });
  SetFileFailure([](const FileCall&) { return 1; });
  int some = 0;
  const CountedString name = {0, 0, nullptr};
  const ObjectAttributes attributes = {48, &some, &name, 0, nullptr, nullptr};
  IoStatusBlock ioStatus = {};
  void* file = &some;
  EXPECT_EQ(ZwCreateFile(&file, 2, &attributes, &ioStatus, nullptr, 0, 0, 3, 4, &some, 5), 1);
  EXPECT_EQ(file, &some);
  EXPECT_EQ(last.handle, &some);
  EXPECT_EQ(last.rootDirectory, &some);
  EXPECT_EQ(last.fileName, u"");
  EXPECT_FALSE(last.hasAllocationSize);
  EXPECT_EQ(last.createDisposition, 3u);
  EXPECT_EQ(last.eaBuffer, &some);
  EXPECT_EQ(last.eaLength, 5u);
  int marks[3] = {};
  const uint32_t key = 0;
  EXPECT_EQ(
      ZwReadFile(nullptr, &marks[0], &marks[1], &marks[2], &ioStatus, nullptr, 4, nullptr, &key),
      1);
  EXPECT_EQ(last.event, &marks[0]);
  EXPECT_EQ(last.apcRoutine, &marks[1]);
  EXPECT_EQ(last.apcContext, &marks[2]);
  EXPECT_FALSE(last.offset.has_value());
  EXPECT_TRUE(last.hasKey);
}

TEST_F(HostFileTest, AFailureIsReturnedInsteadOfTheCall) {
  Write("file", "0123456789");
  std::string failing;
  SetFileFailure([&](const FileCall& call) {
    return call.name == failing ? static_cast<int32_t>(0xC0000185) : 0;
  });
  failing = "ZwCreateFile";
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file"), Failure(0xC0000185));
  failing = "";
  const Opened opened = Open(u"\\SystemRoot\\file");
  ASSERT_EQ(opened.status, 0u);

  failing = "ZwQueryInformationFile";
  FileStandardInformation information = {};
  EXPECT_EQ(Query(opened.file, &information), Failure(0xC0000185));
  EXPECT_EQ(information.numberOfLinks, 0u);
  uint8_t byte = 0;
  failing = "ZwReadFile";
  EXPECT_EQ(Read(opened.file, &byte, 1, 0), Failure(0xC0000185));
  EXPECT_EQ(byte, 0);
  EXPECT_EQ(Query(opened.file, &information), Success(24));

  failing = "ZwClose";
  EXPECT_EQ(static_cast<uint32_t>(ZwClose(opened.file)), 0xC0000185);
  EXPECT_EQ(OpenHandles(), 1u);
  EXPECT_EQ(Read(opened.file, &byte, 1, 0), Success(1));
  SetFileFailure(nullptr);
  EXPECT_EQ(ZwClose(opened.file), 0);
}

TEST_F(HostFileTest, TheObserverMayMakeCallsAndReplaceItself) {
  Write("file", "x");
  int seen = 0;
  SetFileCallObserver([&](const FileCall&) {
    SetFileCallObserver([&](const FileCall&) { ++seen; });
    EXPECT_EQ(TryOpen(u"\\SystemRoot\\file"), Success(1));
  });
  EXPECT_EQ(TryOpen(u"\\SystemRoot\\file"), Success(1));
  EXPECT_EQ(seen, 3);  // the open and close made by the first observer, and the close after it
}

TEST_F(HostFileTest, ThreadsUseFilesAtTheSameTime) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    const std::string name = "file" + std::to_string(i);
    Write(name, name);
    threads.emplace_back([machineName = MachineName(name), name] {
      for (int round = 0; round < 50; ++round) {
        const Opened opened = Open(machineName);
        std::string text(name.size(), '.');
        EXPECT_EQ(Read(opened.file, text.data(), 5, 0), Success(5));
        EXPECT_EQ(text, name);
        EXPECT_EQ(ZwClose(opened.file), 0);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace kolm::host
