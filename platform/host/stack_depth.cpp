// Measures how deep a call reaches down its stack, by a pattern that it leaves or overwrites.
#include "platform/host/stack_depth.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

#include "platform/host/broken_promise.h"
#include "platform/host/host_kernel.h"

namespace kolm::host {
namespace {

constexpr size_t kStackBytes = size_t{1} << 20;
constexpr size_t kGuardBytes = 4096;
constexpr uint64_t kPattern = 0x5AD1F00D93B7E64C;
// Below the stack pointer a leaf function may keep data without moving it.
constexpr size_t kRedZoneBytes = 128;

struct Measurement {
  const std::function<void()>* run;
  uint8_t level;
  uint64_t* stackLimit;  // the lowest word of the stack
  uint64_t* deepest;     // the lowest word found changed
};

thread_local Measurement* measuring = nullptr;

// Assembly, so that not even a sanitizer's or the C library's function uses the stack meanwhile.
[[gnu::noinline]] void FillUnusedStack() {
  uint64_t* limit = measuring->stackLimit;
  size_t words;
  asm volatile(
      "mov %%rsp, %%rcx\n"
      "sub %[redZone], %%rcx\n"
      "sub %%rdi, %%rcx\n"
      "shr $3, %%rcx\n"
      "rep stosq\n"
      : "+D"(limit), "=&c"(words)
      : "a"(kPattern), [redZone] "i"(kRedZoneBytes)
      : "memory", "cc");
}

// Reads below the stack pointer, where a sanitizer sees only dead frames.
[[gnu::noinline]] __attribute__((no_sanitize("address", "undefined"))) void NoteDeepest() {
  const volatile uint64_t* word = measuring->stackLimit;
  while (*word == kPattern) ++word;
  measuring->deepest = std::min(measuring->deepest, const_cast<uint64_t*>(word));
}

void* Measure(void* argument) {
  Measurement* measurement = static_cast<Measurement*>(argument);
  SetCallingLevel(measurement->level);
  uint64_t* const begin = static_cast<uint64_t*>(__builtin_frame_address(0));
  measurement->deepest = begin;
  measuring = measurement;
  FillUnusedStack();
  (*measurement->run)();
  NoteDeepest();
  measuring = nullptr;
  return reinterpret_cast<void*>((begin - measurement->deepest) * sizeof *begin);
}

void DemandSuccess(bool success) {
  if (!success) BrokenPromise("no thread to measure a stack on");
}

}  // namespace

HostStackUse::HostStackUse() {
  if (measuring != nullptr) NoteDeepest();
}

HostStackUse::~HostStackUse() {
  if (measuring != nullptr) FillUnusedStack();
}

size_t StackDepth(const std::function<void()>& run) {
  void* const memory = mmap(nullptr, kGuardBytes + kStackBytes, PROT_NONE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  DemandSuccess(memory != MAP_FAILED);
  uint8_t* const stack = static_cast<uint8_t*>(memory) + kGuardBytes;
  DemandSuccess(mprotect(stack, kStackBytes, PROT_READ | PROT_WRITE) == 0);

  Measurement measurement{&run, CallingLevel(), reinterpret_cast<uint64_t*>(stack), nullptr};
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kStackBytes);
  pthread_t thread;
  DemandSuccess(pthread_create(&thread, &attributes, &Measure, &measurement) == 0);
  pthread_attr_destroy(&attributes);
  void* depth = nullptr;
  pthread_join(thread, &depth);
  munmap(memory, kGuardBytes + kStackBytes);
  return reinterpret_cast<size_t>(depth);
}

}  // namespace kolm::host
