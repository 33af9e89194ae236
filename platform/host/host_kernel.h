// The host's side of the kernel calls, as tests, fuzzers and tools see it: how pool blocks are
// guarded and counted, where debugger lines go, which files are found and who sees the calls, which
// level a thread runs at, what a broken promise does. Nothing here exists in Kolm.sys.
//
// A broken promise of the module (a leak is not one of them: ask DescribePoolBlocks and
// DescribeOpenHandles) ends the process with a message and the call stack on standard error, so
// that tests use death tests for it: a write outside a pool block, a double free, the free of
// something that is no block, a changed freed block, an allocation of no bytes, without a tag or of
// another pool type, a call above its level, a debugger line with an unknown conversion, a file
// call that asks for more than reading, a read into memory that is not there, a handle closed
// twice. What the processor or a sanitizer notices by itself ends the process in its own way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kolm::host {

// ---- Pool ----

enum class PoolGuard {
  None,    // plain blocks between two narrow checked strips: for benchmarks and tools; the default
  Behind,  // an unreadable page begins right behind each block
  Before,  // an unreadable page ends right before each block
};

// Applies, in all threads, to blocks allocated from now on. Fresh blocks hold 0xCC. The few bytes
// next to a block that are readable are checked when it is freed. Blocks are 16-byte aligned, but
// for Behind, where only a block of a multiple of 16 bytes is. Blocks above 1 GiB are not to be
// had.
//
// Freed blocks stay in quarantine for a while: guarded ones unreadable, others of up to 4096 bytes
// filled with 0xDD and checked for changes when they leave it.
void SetPoolGuard(PoolGuard guard);

// Whether blocks allocated from now on remember the call stack; on from the start. Benchmarks turn
// it off: it costs more than the allocation.
void SetPoolTrace(bool remember);

struct PoolBlock {
  const void* address;
  size_t bytes;
  uint32_t tag;
  std::string allocatedAt;  // the call stack, one frame a line; empty without the trace
};

// The blocks now allocated; with a tag only those that carry it.
std::vector<PoolBlock> PoolBlocks();
std::vector<PoolBlock> PoolBlocks(uint32_t tag);

// Blocks allocated since the process began, freed ones included.
uint64_t PoolAllocations();

// An empty string, or a description of each block that is still allocated, for a test to show.
// Checks the blocks in quarantine on the way.
std::string DescribePoolBlocks();

// Lets allocations fail. `decide` is asked at each allocation, one at a time, with the call stack's
// hash (0 without the trace); true lets it fail. Null stops it.
void SetPoolFailure(std::function<bool(uint64_t callStack)> decide);

// Lets each distinct allocating call stack fail once while `run` is repeated until none is left
// that has not failed; one failure a run. Returns how many failed. Allocations succeed afterwards.
size_t FailEachAllocationOnce(const std::function<void()>& run);

// Lets about one allocation in `oneIn` fail, chosen by `seed`: the same ones again for the same
// seed. 0 lets none fail.
void FailAllocationsBySeed(uint64_t seed, uint32_t oneIn);

// ---- Debugger lines ----

// Receives each DbgPrint text from now on, on the thread that prints it, one at a time; null
// restores standard error. A text is at most 511 bytes long, the rest is lost. 16-bit characters
// above 0x7F show as '?', a null string as (null).
void SetDebugSink(std::function<void(const std::string& text)> sink);

// ---- Files ----

// The name \SystemRoot\... means a file in the folder that the environment variable
// KOLM_SYSTEM_ROOT names at the time of the call, \??\Z:\... a file anywhere. Names are matched
// without regard to case where there is none of exactly that name. A file without permission to its
// owner is closed to everybody. Sharing holds among the handles of this process.

// One call with all its arguments; those that the call does not have stay as they are here.
struct FileCall {
  std::string name;        // "ZwCreateFile" and so on
  void* handle = nullptr;  // for ZwCreateFile what stands where the handle goes

  // ZwCreateFile
  uint32_t desiredAccess = 0;
  uint32_t objectLength = 0;  // of the object attributes' structure, as it says
  void* rootDirectory = nullptr;
  uint32_t objectAttributes = 0;
  void* securityDescriptor = nullptr;
  void* securityQualityOfService = nullptr;
  std::u16string fileName;
  uint16_t nameLength = 0;         // in bytes
  uint16_t nameMaximumLength = 0;  // in bytes
  bool hasAllocationSize = false;
  uint32_t fileAttributes = 0;
  uint32_t shareAccess = 0;
  uint32_t createDisposition = 0;
  uint32_t createOptions = 0;
  void* eaBuffer = nullptr;
  uint32_t eaLength = 0;

  // ZwQueryInformationFile and ZwReadFile
  void* buffer = nullptr;
  uint32_t length = 0;

  // ZwQueryInformationFile
  int32_t informationClass = 0;
  bool informationZeroed = false;  // all `length` bytes, when the call came

  // ZwReadFile
  void* event = nullptr;
  void* apcRoutine = nullptr;
  void* apcContext = nullptr;
  std::optional<int64_t> offset;
  bool hasKey = false;
};

// Receives each file call before it is done, on the calling thread, one at a time; null stops it.
void SetFileCallObserver(std::function<void(const FileCall&)> observer);

// Lets file calls fail: `decide` is asked at each call, one at a time, and a status other than 0 is
// returned instead of doing it (a ZwClose so treated leaves its handle open). Null stops it.
void SetFileFailure(std::function<int32_t(const FileCall&)> decide);

// The handles now open.
size_t OpenHandles();

// An empty string, or the name and the opening call's stack of each open handle, for a test to
// show.
std::string DescribeOpenHandles();

// ---- Calling level (IRQL), kept per thread ----

enum : uint8_t { kPassiveLevel = 0, kApcLevel = 1, kDispatchLevel = 2 };

// Threads begin at PASSIVE.
void SetCallingLevel(uint8_t level);
uint8_t CallingLevel();

// ---- Bug checks ----

struct BugCheck {
  uint32_t code;
  uintptr_t parameters[4];
};

// Runs `run`; returns true and fills *check if it ended in KeBugCheckEx on this thread. Without
// such an expectation a bug check prints itself and aborts. What `run` had on its stack is not
// destroyed.
bool ExpectBugCheck(const std::function<void()>& run, BugCheck* check);

// ---- Stack depth ----

// The deepest use of the stack, in bytes, of the call of `run` on a thread of its own with 1 MiB of
// stack, at the caller's level. Kernel calls count with little more than their entry. The figure is
// too large by up to about 200 bytes, and means nothing in sanitized builds.
size_t StackDepth(const std::function<void()>& run);

}  // namespace kolm::host
