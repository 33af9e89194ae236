// The host's side of the kernel calls, as tests, fuzzers and tools see it: how pool blocks are
// guarded and counted, where debugger lines go, which level a thread runs at, what a broken promise
// does. Nothing here exists in Kolm.sys.
//
// A broken promise of the module (a leak is not one of them: ask CheckNoPoolBlocks) ends the process
// with a message on standard error, so that tests use death tests for it: a write outside a pool
// block, a double free, the free of something that is no block, a changed freed block, an
// allocation of no bytes, without a tag or above level DISPATCH, a call above its level.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kolm::host {

// ---- Pool ----

enum class PoolGuard {
  None,    // plain blocks, filled and tag-checked: for benchmarks and tools; the default
  Behind,  // an unreadable page begins right behind each block
  Before,  // an unreadable page ends right before each block
};

// Applies to blocks allocated from now on. In the two guarded modes freed blocks are filled with
// 0xDD and kept unreadable or watched for a while (quarantine). Fresh blocks hold 0xCC.
void SetPoolGuard(PoolGuard guard);

struct PoolBlock {
  const void* address;
  size_t bytes;
  uint32_t tag;
  std::string allocatedAt;  // the call stack, one frame a line
};

// The blocks now allocated; with a tag only those that carry it.
std::vector<PoolBlock> PoolBlocks();
std::vector<PoolBlock> PoolBlocks(uint32_t tag);

// Allocations, and the bytes they asked for, since the process began.
uint64_t PoolAllocations();

// An empty string, or a description of each block that is still allocated, for a test to show.
std::string DescribePoolBlocks();

// Lets allocations fail. `decide` is asked at each allocation with the call stack's hash; true lets
// it fail. Null stops it.
void SetPoolFailure(std::function<bool(uint64_t callStack)> decide);

// Lets each distinct allocating call stack fail once while `run` is repeated until none is left
// that has not failed. Returns how many failed.
size_t FailEachAllocationOnce(const std::function<void()>& run);

// Lets about one allocation in `oneIn` fail, chosen by `seed`.
void FailAllocationsBySeed(uint64_t seed, uint32_t oneIn);

// ---- Debugger lines ----

// Receives each DbgPrint text from now on, on the thread that prints it; null restores standard
// error.
void SetDebugSink(std::function<void(const std::string& text)> sink);

// ---- Calling level (IRQL), kept per thread ----

enum : uint8_t { kPassiveLevel = 0, kApcLevel = 1, kDispatchLevel = 2 };

void SetCallingLevel(uint8_t level);
uint8_t CallingLevel();

// ---- Bug checks ----

struct BugCheck {
  uint32_t code;
  uintptr_t parameters[4];
};

// Runs `run`; returns true and fills *check if it ended in KeBugCheckEx. Without such an expectation
// a bug check prints itself and aborts. What `run` had on its stack is not destroyed.
bool ExpectBugCheck(const std::function<void()>& run, BugCheck* check);

// ---- Stack depth ----

// The deepest use of the stack, in bytes, of the call of `run` on a thread of its own.
size_t StackDepth(const std::function<void()>& run);

}  // namespace kolm::host
