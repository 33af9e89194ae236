// The pool: guarded, filled and watched blocks, and allocations that fail on demand.
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <unordered_set>

#include "platform/host/broken_promise.h"
#include "platform/host/call_stack.h"
#include "platform/host/calling_level.h"
#include "platform/host/host_kernel.h"
#include "platform/host/stack_depth.h"
#include "platform/kernel_calls.h"

namespace kolm::host {
namespace {

constexpr size_t kPageBytes = 4096;
constexpr size_t kStripBytes = 16;  // on either side of a block without guard page
constexpr size_t kLargestBlock = size_t{1} << 30;
constexpr size_t kLargestPoisoned = 4096;
constexpr size_t kQuarantineBlocks = 256;
constexpr size_t kQuarantineBytes = size_t{1} << 30;  // of address space; little of it is backed

constexpr uint8_t kFreshFill = 0xCC;
constexpr uint8_t kFreedFill = 0xDD;
constexpr uint8_t kStripFill = 0xAB;

// A block in its region, the readable memory that holds it. A guarded region lies between two
// unreadable pages.
struct Block {
  uint8_t* region;
  size_t regionBytes;
  uint8_t* address;
  size_t bytes;
  uint32_t tag;
  PoolGuard guard;
  CallStack allocatedAt;

  uint8_t* End() const { return address + bytes; }
  uint8_t* RegionEnd() const { return region + regionBytes; }
};

// Never destroyed: static objects of others may give back their blocks last.
struct Pool {
  std::mutex mutex;
  std::map<const void*, Block> live;
  std::deque<Block> quarantine;  // a block whose memory is already gone has no region
  size_t quarantineBytes = 0;
  uint64_t allocations = 0;
};

Pool& ThePool() {
  static Pool& pool = *new Pool;
  return pool;
}

std::atomic<PoolGuard> currentGuard{PoolGuard::None};
std::atomic<bool> remembersCallStacks{true};

using FailureDecision = std::function<bool(uint64_t)>;

struct Failure {
  std::recursive_mutex mutex;
  std::shared_ptr<const FailureDecision> decide;
};

Failure& TheFailure() {
  static Failure& failure = *new Failure;
  return failure;
}

bool ShouldFail(const CallStack& stack) {
  Failure& failure = TheFailure();
  const std::lock_guard lock(failure.mutex);
  const std::shared_ptr<const FailureDecision> decide = failure.decide;
  return decide != nullptr && (*decide)(HashCallStack(stack));
}

std::string Describe(const Block& block) {
  char name[5] = {};
  std::memcpy(name, &block.tag, sizeof block.tag);
  for (char* c = name; c != name + 4; ++c) {
    if (std::isprint(static_cast<unsigned char>(*c)) == 0) *c = '.';
  }
  char text[80];
  std::snprintf(text, sizeof text, "pool block %p, %zu bytes, tag %s",
                static_cast<void*>(block.address), block.bytes, name);
  return text;
}

[[noreturn]] void BrokenBlock(const Block& block, const char* what) {
  BrokenPromise("%s: %s; allocated at\n%sFound at", Describe(block).c_str(), what,
                DescribeCallStack(block.allocatedAt).c_str());
}

bool Holds(const uint8_t* begin, const uint8_t* end, uint8_t fill) {
  return std::all_of(begin, end, [fill](uint8_t byte) { return byte == fill; });
}

// Lays out block->bytes bytes; false if there is no memory.
bool Reserve(Block* block) {
  if (block->guard == PoolGuard::None) {
    block->regionBytes = kStripBytes + block->bytes + kStripBytes;
    block->region = static_cast<uint8_t*>(std::malloc(block->regionBytes));
    block->address = block->region + kStripBytes;
    return block->region != nullptr;
  }
  block->regionBytes = (block->bytes + kPageBytes - 1) / kPageBytes * kPageBytes;
  const size_t mappedBytes = kPageBytes + block->regionBytes + kPageBytes;
  void* const mapped =
      mmap(nullptr, mappedBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapped == MAP_FAILED) return false;
  block->region = static_cast<uint8_t*>(mapped) + kPageBytes;
  block->address =
      block->guard == PoolGuard::Behind ? block->RegionEnd() - block->bytes : block->region;
  if (mprotect(block->region, block->regionBytes, PROT_READ | PROT_WRITE) == 0) return true;
  munmap(mapped, mappedBytes);
  return false;
}

void Release(const Block& block) {
  if (block.guard == PoolGuard::None) {
    std::free(block.region);
  } else {
    munmap(block.region - kPageBytes, kPageBytes + block.regionBytes + kPageBytes);
  }
}

// The sanitizer, where there is one, sees the strips and freed blocks as not to be touched.
void Fill(const Block& block) {
  std::fill(block.region, block.address, kStripFill);
  std::fill(block.address, block.End(), kFreshFill);
  std::fill(block.End(), block.RegionEnd(), kStripFill);
  ASAN_POISON_MEMORY_REGION(block.region, block.address - block.region);
  ASAN_POISON_MEMORY_REGION(block.End(), block.RegionEnd() - block.End());
}

void CheckStrips(const Block& block) {
  ASAN_UNPOISON_MEMORY_REGION(block.region, block.regionBytes);
  if (!Holds(block.region, block.address, kStripFill)) BrokenBlock(block, "written before it");
  if (!Holds(block.End(), block.RegionEnd(), kStripFill)) BrokenBlock(block, "written behind it");
}

void CheckPoison(const Block& block) {
  if (block.guard != PoolGuard::None || block.region == nullptr) return;
  ASAN_UNPOISON_MEMORY_REGION(block.region, block.regionBytes);
  if (!Holds(block.region, block.RegionEnd(), kFreedFill)) {
    BrokenBlock(block, "written after it was freed");
  }
  ASAN_POISON_MEMORY_REGION(block.region, block.regionBytes);
}

void EndOldestQuarantine(Pool* pool) {
  const Block& oldest = pool->quarantine.front();
  CheckPoison(oldest);
  ASAN_UNPOISON_MEMORY_REGION(oldest.region, oldest.regionBytes);
  pool->quarantineBytes -= oldest.regionBytes;
  if (oldest.region != nullptr) Release(oldest);
  pool->quarantine.pop_front();
}

void Quarantine(Pool* pool, Block block) {
  if (block.guard != PoolGuard::None) {
    // A fresh mapping in its place holds the addresses without the memory.
    if (mmap(block.region, block.regionBytes, PROT_NONE,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0) == MAP_FAILED) {
      BrokenBlock(block, "cannot be made unreadable: too many mappings");
    }
  } else if (block.bytes <= kLargestPoisoned) {
    std::fill(block.region, block.RegionEnd(), kFreedFill);
    ASAN_POISON_MEMORY_REGION(block.region, block.regionBytes);
  } else {
    Release(block);
    block.region = nullptr;
    block.regionBytes = 0;
  }
  pool->quarantine.push_back(block);
  pool->quarantineBytes += block.regionBytes;
  while (pool->quarantine.size() > kQuarantineBlocks || pool->quarantineBytes > kQuarantineBytes) {
    EndOldestQuarantine(pool);
  }
}

[[gnu::noinline]] void* Allocate(int32_t poolType, size_t bytes, uint32_t tag) {
  DemandLevel(kDispatchLevel, "ExAllocatePoolWithTag");
  if (poolType != kNonPagedPool) BrokenPromise("allocation from pool type %d", poolType);
  if (bytes == 0) BrokenPromise("allocation of no bytes");
  if (tag == 0) BrokenPromise("allocation without a tag");
  Block block{nullptr, 0, nullptr, bytes, tag, currentGuard, {}};
  if (remembersCallStacks) block.allocatedAt = CaptureCallStack();
  if (ShouldFail(block.allocatedAt) || bytes > kLargestBlock || !Reserve(&block)) return nullptr;
  Fill(block);
  Pool& pool = ThePool();
  const std::lock_guard lock(pool.mutex);
  pool.live.emplace(block.address, block);
  ++pool.allocations;
  return block.address;
}

[[gnu::noinline]] void Free(void* address) {
  DemandLevel(kDispatchLevel, "ExFreePool");
  Pool& pool = ThePool();
  const std::lock_guard lock(pool.mutex);
  const auto found = pool.live.find(address);
  if (found == pool.live.end()) {
    for (const Block& block : pool.quarantine) {
      if (block.address == address) BrokenBlock(block, "freed twice");
    }
    BrokenPromise("free of %p, which is no pool block", address);
  }
  const Block block = found->second;
  pool.live.erase(found);
  CheckStrips(block);
  Quarantine(&pool, block);
}

std::vector<PoolBlock> LiveBlocks(std::optional<uint32_t> tag) {
  Pool& pool = ThePool();
  const std::lock_guard lock(pool.mutex);
  std::vector<PoolBlock> blocks;
  for (const auto& [address, block] : pool.live) {
    if (tag.has_value() && block.tag != *tag) continue;
    blocks.push_back({address, block.bytes, block.tag, DescribeCallStack(block.allocatedAt)});
  }
  return blocks;
}

}  // namespace

void SetPoolGuard(PoolGuard guard) { currentGuard = guard; }

void SetPoolTrace(bool remember) { remembersCallStacks = remember; }

std::vector<PoolBlock> PoolBlocks() { return LiveBlocks(std::nullopt); }

std::vector<PoolBlock> PoolBlocks(uint32_t tag) { return LiveBlocks(tag); }

uint64_t PoolAllocations() {
  Pool& pool = ThePool();
  const std::lock_guard lock(pool.mutex);
  return pool.allocations;
}

std::string DescribePoolBlocks() {
  Pool& pool = ThePool();
  const std::lock_guard lock(pool.mutex);
  std::for_each(pool.quarantine.begin(), pool.quarantine.end(), CheckPoison);
  std::string text;
  for (const auto& [address, block] : pool.live) {
    text += Describe(block) + ", allocated at\n" + DescribeCallStack(block.allocatedAt);
  }
  return text;
}

void SetPoolFailure(std::function<bool(uint64_t callStack)> decide) {
  Failure& failure = TheFailure();
  const std::lock_guard lock(failure.mutex);
  failure.decide =
      decide == nullptr ? nullptr : std::make_shared<const FailureDecision>(std::move(decide));
}

size_t FailEachAllocationOnce(const std::function<void()>& run) {
  std::unordered_set<uint64_t> failed;
  bool failedThisRun = false;
  do {
    failedThisRun = false;
    SetPoolFailure([&failed, &failedThisRun](uint64_t callStack) {
      if (failedThisRun || !failed.insert(callStack).second) return false;
      failedThisRun = true;
      return true;
    });
    run();
    SetPoolFailure(nullptr);
  } while (failedThisRun);
  return failed.size();
}

void FailAllocationsBySeed(uint64_t seed, uint32_t oneIn) {
  if (oneIn == 0) return SetPoolFailure(nullptr);
  SetPoolFailure([generator = std::mt19937_64(seed), oneIn](uint64_t) mutable {
    return generator() % oneIn == 0;
  });
}

}  // namespace kolm::host

void* ExAllocatePoolWithTag(int32_t poolType, size_t bytes, uint32_t tag) {
  const kolm::host::HostStackUse hidden;
  return kolm::host::Allocate(poolType, bytes, tag);
}

void ExFreePool(void* block) {
  const kolm::host::HostStackUse hidden;
  kolm::host::Free(block);
}
