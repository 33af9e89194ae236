// The host's kernel calls keep the promises of platform/host/host_kernel.h: a test that relies on a
// guard, a fill or a count must be able to.
#include "platform/host/host_kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/kernel_calls.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ADDRESS_SANITIZED
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define ADDRESS_SANITIZED
#endif

// The address sanitizer reports the fault itself.
#ifdef ADDRESS_SANITIZED
#define EXPECT_FAULT(statement) EXPECT_DEATH(statement, "SEGV on unknown address")
#else
#define EXPECT_FAULT(statement) EXPECT_EXIT(statement, testing::KilledBySignal(SIGSEGV), "")
#endif

namespace kolm::host {
namespace {

constexpr uint32_t kTag = 'T' | 'e' << 8 | 's' << 16 | uint32_t{'t'} << 24;
constexpr uint32_t kOtherTag = 'O' | 't' << 8 | 'h' << 16 | uint32_t{'r'} << 24;

uint8_t* Allocate(size_t bytes, uint32_t tag = kTag) {
  return static_cast<uint8_t*>(ExAllocatePoolWithTag(kNonPagedPool, bytes, tag));
}

// As a module built without sanitizer would read and write.
[[gnu::noinline]] __attribute__((no_sanitize("address"))) uint8_t Read(const uint8_t* address) {
  return *static_cast<const volatile uint8_t*>(address);
}

[[gnu::noinline]] __attribute__((no_sanitize("address"))) void Write(uint8_t* address) {
  *static_cast<volatile uint8_t*>(address) = 1;
}

class HostKernelTest : public testing::Test {
 protected:
  void TearDown() override {
    SetPoolGuard(PoolGuard::None);
    SetPoolFailure(nullptr);
    SetDebugSink(nullptr);
    SetCallingLevel(kPassiveLevel);
    EXPECT_EQ(DescribePoolBlocks(), "");
  }
};

// ---- Pool ----

class PoolTest : public HostKernelTest, public testing::WithParamInterface<PoolGuard> {
 protected:
  void SetUp() override { SetPoolGuard(GetParam()); }
};

using PoolDeathTest = PoolTest;

constexpr PoolGuard kGuards[] = {PoolGuard::None, PoolGuard::Behind, PoolGuard::Before};

std::string GuardName(const testing::TestParamInfo<PoolGuard>& info) {
  return info.param == PoolGuard::None ? "None"
                                       : (info.param == PoolGuard::Behind ? "Behind" : "Before");
}

INSTANTIATE_TEST_SUITE_P(Guards, PoolTest, testing::ValuesIn(kGuards), GuardName);
INSTANTIATE_TEST_SUITE_P(Guards, PoolDeathTest, testing::ValuesIn(kGuards), GuardName);

TEST_P(PoolTest, FreshBlocksHoldTheFill) {
  for (const size_t bytes : {1, 15, 4096, 4097, 100000}) {
    uint8_t* block = Allocate(bytes);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::count(block, block + bytes, 0xCC), static_cast<ptrdiff_t>(bytes));
    std::memset(block, 0, bytes);
    ExFreePool(block);
  }
}

TEST_P(PoolTest, BlocksAreAlignedButForTheirGuard) {
  for (const size_t bytes : {1, 16, 24, 4096, 5000}) {
    uint8_t* block = Allocate(bytes);
    const uintptr_t address = reinterpret_cast<uintptr_t>(block);
    if (GetParam() == PoolGuard::Behind) {
      EXPECT_EQ((address + bytes) % 4096, 0u);
    } else {
      EXPECT_EQ(address % 16, 0u);
    }
    ExFreePool(block);
  }
}

TEST_P(PoolTest, WithoutTheTraceBlocksDoNotTellWhereTheyComeFrom) {
  SetPoolTrace(false);
  uint8_t* silent = Allocate(10);
  SetPoolTrace(true);
  ASSERT_EQ(PoolBlocks().size(), 1u);
  EXPECT_EQ(PoolBlocks()[0].address, silent);
  EXPECT_EQ(PoolBlocks()[0].allocatedAt, "");
  ExFreePool(silent);
}

TEST_P(PoolTest, BlocksAboveAGigabyteAreNotToBeHad) {
  EXPECT_EQ(Allocate((size_t{1} << 30) + 1), nullptr);
  EXPECT_EQ(Allocate(~size_t{0}), nullptr);
}

TEST_P(PoolTest, CountsAllocations) {
  const uint64_t before = PoolAllocations();
  ExFreePool(Allocate(1));
  ExFreePool(Allocate(100000));
  EXPECT_EQ(PoolAllocations(), before + 2);
}

TEST_P(PoolTest, ListsLiveBlocksByTag) {
  uint8_t* first = Allocate(100);
  uint8_t* second = Allocate(200, kOtherTag);
  EXPECT_EQ(PoolBlocks().size(), 2u);
  const std::vector<PoolBlock> blocks = PoolBlocks(kOtherTag);
  ASSERT_EQ(blocks.size(), 1u);
  EXPECT_EQ(blocks[0].address, second);
  EXPECT_EQ(blocks[0].bytes, 200u);
  EXPECT_EQ(blocks[0].tag, kOtherTag);
  EXPECT_GT(std::count(blocks[0].allocatedAt.begin(), blocks[0].allocatedAt.end(), '\n'), 3);
  ExFreePool(second);
  EXPECT_TRUE(PoolBlocks(kOtherTag).empty());
  ExFreePool(first);
  EXPECT_TRUE(PoolBlocks().empty());
}

TEST_P(PoolTest, DescribesALeakWithItsCallStack) {
  uint8_t* block = Allocate(321);
  const std::string description = DescribePoolBlocks();
  EXPECT_NE(description.find("321 bytes, tag Test, allocated at\n"), std::string::npos);
  EXPECT_NE(description.find(PoolBlocks()[0].allocatedAt), std::string::npos);
  ExFreePool(block);
  EXPECT_EQ(DescribePoolBlocks(), "");
}

TEST_P(PoolTest, ServesThreadsAtOnce) {
  const uint64_t before = PoolAllocations();
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread] {
      for (size_t i = 1; i <= 300; ++i) {
        uint8_t* block = Allocate(i * 7);
        std::memset(block, thread, i * 7);
        EXPECT_EQ(block[i * 7 - 1], thread);
        ExFreePool(block);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(PoolAllocations(), before + 1200);
}

TEST_P(PoolTest, WorksAtDispatchLevel) {
  SetCallingLevel(kDispatchLevel);
  uint8_t* block = Allocate(10);
  EXPECT_NE(block, nullptr);
  ExFreePool(block);
}

TEST_P(PoolDeathTest, RefusesToWorkAboveDispatchLevel) {
  uint8_t* block = Allocate(10);
  SetCallingLevel(kDispatchLevel + 1);
  EXPECT_DEATH(Allocate(10), "ExAllocatePoolWithTag called at level 3, highest is 2");
  EXPECT_DEATH(ExFreePool(block), "ExFreePool called at level 3, highest is 2");
  SetCallingLevel(kPassiveLevel);
  ExFreePool(block);
}

TEST_P(PoolDeathTest, RefusesSenselessAllocations) {
  EXPECT_DEATH(Allocate(0), "allocation of no bytes");
  EXPECT_DEATH(Allocate(10, 0), "allocation without a tag");
  EXPECT_DEATH(ExAllocatePoolWithTag(1, 10, kTag), "allocation from pool type 1");
}

TEST_P(PoolDeathTest, FindsTheFreeOfNoBlock) {
  uint8_t local = 0;
  uint8_t* block = Allocate(10);
  EXPECT_DEATH(ExFreePool(&local), "no pool block");
  EXPECT_DEATH(ExFreePool(nullptr), "no pool block");
  EXPECT_DEATH(ExFreePool(block + 1), "no pool block");
  ExFreePool(block);
}

TEST_P(PoolDeathTest, FindsADoubleFree) {
  for (const size_t bytes : {10, 100000}) {
    uint8_t* block = Allocate(bytes);
    ExFreePool(block);
    EXPECT_DEATH(ExFreePool(block), "tag Test: freed twice");
  }
}

// A byte on either side is noticed: at once where the guard page is, otherwise by the free.
TEST_P(PoolDeathTest, FindsAWriteBehindTheBlock) {
  for (const size_t bytes : {1, 100, 5000}) {
    uint8_t* block = Allocate(bytes);
    if (GetParam() == PoolGuard::Behind) {
      EXPECT_FAULT(Write(block + bytes));
    } else {
      EXPECT_DEATH((Write(block + bytes), ExFreePool(block)), "tag Test: written behind it");
    }
    ExFreePool(block);
  }
}

TEST_P(PoolDeathTest, FindsAWriteBeforeTheBlock) {
  for (const size_t bytes : {1, 100, 5000}) {
    uint8_t* block = Allocate(bytes);
    if (GetParam() == PoolGuard::Before) {
      EXPECT_FAULT(Write(block - 1));
    } else {
      EXPECT_DEATH((Write(block - 1), ExFreePool(block)), "tag Test: written before it");
    }
    ExFreePool(block);
  }
}

TEST_P(PoolDeathTest, GuardPagesCannotBeRead) {
  if (GetParam() == PoolGuard::None) return;
  const size_t bytes = 4096;
  uint8_t* block = Allocate(bytes);
  EXPECT_EQ(Read(block), 0xCC);
  EXPECT_EQ(Read(block + bytes - 1), 0xCC);
  EXPECT_FAULT(Read(block - 1));
  EXPECT_FAULT(Read(block + bytes));
  ExFreePool(block);
}

TEST_P(PoolDeathTest, FreedBlocksAreUnreadableOrPoisoned) {
  const size_t bytes = 1000;
  uint8_t* block = Allocate(bytes);
  ExFreePool(block);
  if (GetParam() == PoolGuard::None) {
    EXPECT_EQ(Read(block), 0xDD);
    EXPECT_EQ(Read(block + bytes - 1), 0xDD);
    EXPECT_DEATH((Write(block + 500), DescribePoolBlocks()), "written after it was freed");
  } else {
    EXPECT_FAULT(Read(block));
    EXPECT_FAULT(Read(block + bytes - 1));
  }
}

TEST_P(PoolDeathTest, FreedBlocksAreCheckedWhenTheyLeaveQuarantine) {
  if (GetParam() != PoolGuard::None) return;
  uint8_t* block = Allocate(1000);
  ExFreePool(block);
  const auto pushOut = [] {
    for (int i = 0; i < 1000; ++i) ExFreePool(Allocate(1));
  };
  EXPECT_DEATH((Write(block), pushOut()), "1000 bytes, tag Test: written after it was freed");
  pushOut();
}

// ---- Failing allocations ----

[[gnu::noinline]] bool AllocateHere() {
  uint8_t* block = Allocate(10);
  if (block == nullptr) return false;
  ExFreePool(block);
  return true;
}

[[gnu::noinline]] bool AllocateThere() {
  uint8_t* block = Allocate(20);
  if (block == nullptr) return false;
  ExFreePool(block);
  return true;
}

using PoolFailureTest = HostKernelTest;

TEST_F(PoolFailureTest, TellsCallStacksApart) {
  std::vector<uint64_t> callStacks;
  SetPoolFailure([&](uint64_t callStack) {
    callStacks.push_back(callStack);
    return callStack == callStacks[0];
  });
  std::vector<bool> succeeded;
  // Volatile, so that the loop is not unrolled into calls from different places.
  volatile int rounds = 2;
  for (int i = 0; i < rounds; ++i) {
    succeeded.push_back(AllocateHere());
    succeeded.push_back(AllocateThere());
  }
  EXPECT_EQ(succeeded, (std::vector<bool>{false, true, false, true}));
  ASSERT_EQ(callStacks.size(), 4u);
  EXPECT_EQ(callStacks[0], callStacks[2]);
  EXPECT_EQ(callStacks[1], callStacks[3]);
  EXPECT_NE(callStacks[0], callStacks[1]);
  SetPoolFailure(nullptr);
  EXPECT_TRUE(AllocateHere());
}

// AllocateThere is reached only by runs in which AllocateHere succeeds.
TEST_F(PoolFailureTest, FailsEachCallStackOnce) {
  std::vector<std::string> runs;
  const size_t failed = FailEachAllocationOnce([&] {
    if (!AllocateHere()) {
      runs.push_back("no first");
    } else if (!AllocateThere()) {
      runs.push_back("no second");
    } else {
      runs.push_back("both");
    }
  });
  EXPECT_EQ(failed, 2u);
  EXPECT_EQ(runs, (std::vector<std::string>{"no first", "no second", "both"}));
  EXPECT_TRUE(AllocateHere());
}

TEST_F(PoolFailureTest, FailsOneAllocationARun) {
  std::vector<std::pair<bool, bool>> runs;
  EXPECT_EQ(FailEachAllocationOnce([&] {
              const bool here = AllocateHere();
              runs.emplace_back(here, AllocateThere());
            }),
            2u);
  EXPECT_EQ(runs, (std::vector<std::pair<bool, bool>>{{false, true}, {true, false}, {true, true}}));
}

TEST_F(PoolFailureTest, RunsOnceWhereNothingIsAllocated) {
  int runs = 0;
  EXPECT_EQ(FailEachAllocationOnce([&] { ++runs; }), 0u);
  EXPECT_EQ(runs, 1);
}

TEST_F(PoolFailureTest, FailsBySeed) {
  const auto failures = [](uint64_t seed, uint32_t oneIn) {
    FailAllocationsBySeed(seed, oneIn);
    std::vector<bool> failed;
    for (int i = 0; i < 400; ++i) failed.push_back(!AllocateHere());
    return failed;
  };
  const std::vector<bool> first = failures(1, 4);
  EXPECT_EQ(failures(1, 4), first);
  EXPECT_NE(failures(2, 4), first);
  EXPECT_NEAR(static_cast<double>(std::count(first.begin(), first.end(), true)), 100, 40);
  EXPECT_EQ(failures(1, 0), std::vector<bool>(400, false));
  EXPECT_EQ(failures(1, 1), std::vector<bool>(400, true));
}

// ---- Debugger lines ----

class DebugPrintTest : public HostKernelTest {
 protected:
  void SetUp() override {
    SetDebugSink([this](const std::string& text) { printed = text; });
  }

  template <typename... Values>
  std::string Print(const char* format, Values... values) {
    EXPECT_EQ(DbgPrint(format, values...), 0u);
    return printed;
  }

  std::string printed;
};

using DebugPrintDeathTest = DebugPrintTest;

TEST_F(DebugPrintTest, PlainText) {
  EXPECT_EQ(Print("line\n"), "line\n");
  EXPECT_EQ(Print(""), "");
  EXPECT_EQ(Print("100%% sure"), "100% sure");
}

TEST_F(DebugPrintTest, Numbers) {
  EXPECT_EQ(Print("%d %i %u", -5, 7, 4000000000u), "-5 7 4000000000");
  EXPECT_EQ(Print("%x %X %o %#x", 0xBEEFu, 0xBEEFu, 8u, 255u), "beef BEEF 10 0xff");
  EXPECT_EQ(Print("[%5d|%-5d|%05d|%+d|% d]", 42, 42, 42, 42, 42), "[   42|42   |00042|+42| 42]");
  EXPECT_EQ(Print("[%.3d|%8.3x|%*d|%-*d|%.*d]", 7, 10u, 4, 1, 4, 2, 3, 5),
            "[007|     00a|   1|2   |005]");
  EXPECT_EQ(Print("%hd %hx", 0x12345, 0x12345), "9029 2345");
}

TEST_F(DebugPrintTest, LongIs32BitsWide) {
  EXPECT_EQ(Print("%ld %lu %lx", -1, 0xFFFFFFFFu, 0xFFFFFFFFu), "-1 4294967295 ffffffff");
  EXPECT_EQ(Print("%ld", int64_t{0x1'0000'0002}), "2");
  EXPECT_EQ(Print("%I32d %I32x", -1, 0xABCDu), "-1 abcd");
}

TEST_F(DebugPrintTest, SixtyFourBitNumbers) {
  const int64_t large = -1'000'000'000'000;
  EXPECT_EQ(Print("%lld %I64d %Id", large, large, large),
            "-1000000000000 -1000000000000 -1000000000000");
  EXPECT_EQ(Print("%I64x %llu %I64u", 0x123456789ABCu, 1ull << 63, 1ull << 63),
            "123456789abc 9223372036854775808 9223372036854775808");
}

TEST_F(DebugPrintTest, PointersAreSixteenDigits) {
  EXPECT_EQ(Print("%p|%p", reinterpret_cast<void*>(0xFFFFAB0012345678), nullptr),
            "FFFFAB0012345678|0000000000000000");
}

TEST_F(DebugPrintTest, NarrowStrings) {
  const char* none = nullptr;
  EXPECT_EQ(Print("%s|%5s|%-5s|%.2s|%hs|%hS", "abc", "abc", "abc", "abc", "abc", "abc"),
            "abc|  abc|abc  |ab|abc|abc");
  EXPECT_EQ(Print("%s", none), "(null)");
  EXPECT_EQ(Print("%c%c|%3c|%hc|%hC", 'x', 'y', 'z', 'v', 'w'), "xy|  z|v|w");
}

TEST_F(DebugPrintTest, WideStrings) {
  const char16_t* none = nullptr;
  EXPECT_EQ(Print("%S|%ls|%ws", u"abc", u"def", u"ghi"), "abc|def|ghi");
  EXPECT_EQ(Print("[%5S|%-5S|%.2S]", u"abc", u"abc", u"abc"), "[  abc|abc  |ab]");
  EXPECT_EQ(Print("%S", none), "(null)");
  EXPECT_EQ(Print("%S", u"gr\u00FC\u20ACn"), "gr??n");
  EXPECT_EQ(Print("%C%lc%wc", u'a', u'b', u'\u00FC'), "ab?");
}

TEST_F(DebugPrintTest, WideStringsNeedNoAlignment) {
  char storage[9];
  std::memcpy(storage + 1, u"abc", 8);
  EXPECT_EQ(Print("%S", storage + 1), "abc");
}

TEST_F(DebugPrintTest, PrecisionBoundsWhatIsRead) {
  SetPoolGuard(PoolGuard::Behind);
  uint8_t* unterminated = Allocate(6);
  std::memcpy(unterminated, u"abc", 6);
  EXPECT_EQ(Print("%.3S", unterminated), "abc");
  EXPECT_EQ(Print("%.*S", 2, unterminated), "ab");
  ExFreePool(unterminated);
}

TEST_F(DebugPrintTest, CountedStrings) {
  const CountedString string{6, 8, u"abcdef"};
  const CountedString empty{0, 0, nullptr};
  const CountedString* none = nullptr;
  EXPECT_EQ(Print("%wZ|%5wZ|%.2wZ", &string, &string, &string), "abc|  abc|ab");
  EXPECT_EQ(Print("%wZ|%wZ", &empty, none), "(null)|(null)");
}

TEST_F(DebugPrintTest, NarrowReadOfAWideString) {
  EXPECT_EQ(Print("path %s\n", reinterpret_cast<const char*>(u"\\SystemRoot")), "path \\\n");
}

TEST_F(DebugPrintTest, TextsEndAfter511Bytes) {
  const std::string text(600, 'x');
  EXPECT_EQ(Print("%s", text.c_str()), std::string(511, 'x'));
  EXPECT_EQ(Print(text.c_str()), std::string(511, 'x'));
  EXPECT_EQ(Print("%s%S", text.substr(0, 510).c_str(), u"yz"), std::string(510, 'x') + "y");
  EXPECT_EQ(Print("%600d", 1), std::string(511, ' '));
}

TEST_F(DebugPrintTest, WorksAtAnyLevelWithoutWideCharacters) {
  SetCallingLevel(15);
  EXPECT_EQ(Print("%d %s %hS %x\n", 1, "a", "b", 2u), "1 a b 2\n");
}

TEST_F(DebugPrintDeathTest, WideCharactersDemandPassiveLevel) {
  const CountedString string{2, 2, u"x"};
  SetCallingLevel(kApcLevel);
  const char* message = "16-bit characters called at level 1, highest is 0";
  EXPECT_DEATH(DbgPrint("%S", u"x"), message);
  EXPECT_DEATH(DbgPrint("%ls", u"x"), message);
  EXPECT_DEATH(DbgPrint("%ws", u"x"), message);
  EXPECT_DEATH(DbgPrint("%C", u'x'), message);
  EXPECT_DEATH(DbgPrint("%wZ", &string), message);
}

TEST_F(DebugPrintDeathTest, RefusesUnknownConversions) {
  EXPECT_DEATH(DbgPrint("%f", 1.0), "unknown conversion %f");
  EXPECT_DEATH(DbgPrint("%n", nullptr), "unknown conversion %n");
  EXPECT_DEATH(DbgPrint("%wd", 1), "unknown conversion %wd");
  EXPECT_DEATH(DbgPrint("%"), "unknown conversion %");
}

TEST_F(DebugPrintDeathTest, PrintsToStandardErrorWithoutASink) {
  const auto print = [] {
    SetDebugSink(nullptr);
    DbgPrint("Kolm: %d frames\n", 12);
    std::exit(0);
  };
  EXPECT_EXIT(print(), testing::ExitedWithCode(0), "^Kolm: 12 frames\n$");
}

TEST_F(DebugPrintTest, SinkRunsOnThePrintingThread) {
  std::thread::id printer;
  SetDebugSink([&](const std::string&) { printer = std::this_thread::get_id(); });
  std::thread thread([] { DbgPrint("x"); });
  const std::thread::id expected = thread.get_id();
  thread.join();
  EXPECT_EQ(printer, expected);
}

TEST_F(DebugPrintTest, SinkServesOneThreadAtATime) {
  std::atomic<int> inside = 0;
  int lines = 0;
  SetDebugSink([&](const std::string&) {
    EXPECT_EQ(++inside, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ++lines;
    --inside;
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int line = 0; line < 5; ++line) DbgPrint("x");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(lines, 20);
}

TEST_F(DebugPrintTest, SinkMayReplaceItself) {
  std::string second;
  bool livedOn = false;
  auto replaceSink = [&, owned = std::make_shared<int>()](const std::string& text) {
    const std::weak_ptr<int> watch = owned;
    SetDebugSink([&](const std::string& next) { second = next; });
    livedOn = !watch.expired();
    printed = text;
  };
  // Moved, so that the sink alone owns it.
  SetDebugSink(std::move(replaceSink));
  DbgPrint("one");
  DbgPrint("two");
  EXPECT_TRUE(livedOn);
  EXPECT_EQ(printed, "one");
  EXPECT_EQ(second, "two");
}

// ---- Calling level ----

TEST_F(HostKernelTest, EachThreadHasItsCallingLevel) {
  EXPECT_EQ(CallingLevel(), kPassiveLevel);
  SetCallingLevel(kDispatchLevel);
  uint8_t other = 0xFF;
  std::thread([&] { other = CallingLevel(); }).join();
  EXPECT_EQ(other, kPassiveLevel);
  EXPECT_EQ(CallingLevel(), kDispatchLevel);
}

// ---- Bug checks ----

using BugCheckTest = HostKernelTest;
using BugCheckDeathTest = HostKernelTest;

TEST_F(BugCheckTest, IsSeenByWhoExpectsIt) {
  BugCheck check{};
  bool wentOn = false;
  EXPECT_TRUE(ExpectBugCheck(
      [&] {
        KeBugCheckEx(kDriverOverranStackBuffer, 1, ~uintptr_t{0}, 3, 4);
        wentOn = true;
      },
      &check));
  EXPECT_FALSE(wentOn);
  EXPECT_EQ(check.code, 0xF7u);
  EXPECT_EQ(check.parameters[0], 1u);
  EXPECT_EQ(check.parameters[1], ~uintptr_t{0});
  EXPECT_EQ(check.parameters[2], 3u);
  EXPECT_EQ(check.parameters[3], 4u);
}

TEST_F(BugCheckTest, AnExpectationMayBeDisappointed) {
  BugCheck check{7, {}};
  EXPECT_FALSE(ExpectBugCheck([] {}, &check));
  EXPECT_EQ(check.code, 7u);
}

TEST_F(BugCheckTest, TheInnermostExpectationIsMet) {
  BugCheck inner{};
  BugCheck outer{};
  EXPECT_TRUE(ExpectBugCheck(
      [&] {
        EXPECT_TRUE(ExpectBugCheck([] { KeBugCheckEx(1, 0, 0, 0, 0); }, &inner));
        KeBugCheckEx(2, 0, 0, 0, 0);
      },
      &outer));
  EXPECT_EQ(inner.code, 1u);
  EXPECT_EQ(outer.code, 2u);
}

TEST_F(BugCheckDeathTest, EndsTheProcessUnexpected) {
  const char* message =
      "bug check 0x000000f7 \\(0x0000000000000001, 0xffffffffffffffff, 0x0000000000000003, "
      "0x0000000000000004\\)";
  EXPECT_EXIT(KeBugCheckEx(0xF7, 1, ~uintptr_t{0}, 3, 4), testing::KilledBySignal(SIGABRT),
              message);
  BugCheck check{};
  ExpectBugCheck([] {}, &check);
  EXPECT_DEATH(KeBugCheckEx(0xF7, 1, ~uintptr_t{0}, 3, 4), message);
  // An expectation holds for its own thread.
  EXPECT_DEATH(
      ExpectBugCheck([] { std::thread([] { KeBugCheckEx(0xF7, 1, ~uintptr_t{0}, 3, 4); }).join(); },
                     &check),
      message);
}

// ---- Stack depth ----

[[gnu::noinline]] void UseStack() {
  volatile uint8_t used[2000];
  for (volatile uint8_t& byte : used) byte = 1;
}

TEST_F(HostKernelTest, StackDepthIsThatOfTheCall) {
  const size_t depth = StackDepth([] { UseStack(); });
  EXPECT_GE(depth, 2000u);
#ifndef ADDRESS_SANITIZED
  EXPECT_LE(depth, 2600u);
  EXPECT_LE(StackDepth([] {}), 300u);
#endif
}

TEST_F(HostKernelTest, StackDepthFindsTheDeepestCall) {
  const auto deepThenShallow = [] {
    UseStack();
    SetDebugSink([](const std::string&) {});
    DbgPrint("the measurement so far survives a kernel call\n");
  };
  EXPECT_GE(StackDepth(deepThenShallow), 2000u);
}

#ifndef ADDRESS_SANITIZED
TEST_F(HostKernelTest, StackDepthLeavesOutTheHostsOwnUse) {
  SetDebugSink([](const std::string&) { UseStack(); });
  EXPECT_LE(StackDepth([] {
              DbgPrint("%d %S", 1, u"x");
              ExFreePool(Allocate(10));
            }),
            800u);
}
#endif

TEST_F(HostKernelTest, StackDepthRunsOnceOnItsOwnThreadAtTheCallersLevel) {
  SetCallingLevel(kDispatchLevel);
  int runs = 0;
  uint8_t level = 0xFF;
  std::thread::id thread;
  StackDepth([&] {
    ++runs;
    level = CallingLevel();
    thread = std::this_thread::get_id();
  });
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(level, kDispatchLevel);
  EXPECT_NE(thread, std::this_thread::get_id());
}

}  // namespace
}  // namespace kolm::host
