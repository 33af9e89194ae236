// All pool blocks carry one tag, so that a leak is found by it.
#include "module/memory.h"

#include <string.h>

#include "platform/kernel_calls.h"

namespace kolm {
namespace {

// Reads k, v, P, M in memory and in pool listings.
constexpr uint32_t kPoolTag = 'k' | 'v' << 8 | 'P' << 16 | uint32_t{'M'} << 24;

}  // namespace

void* KolmAllocate(size_t bytes) { return ExAllocatePoolWithTag(kNonPagedPool, bytes, kPoolTag); }

void KolmFree(void* block) { ExFreePool(block); }

void KolmZero(void* block, size_t bytes) { memset(block, 0, bytes); }

void KolmCopy(void* destination, const void* source, size_t bytes) {
  memcpy(destination, source, bytes);
}

}  // namespace kolm
