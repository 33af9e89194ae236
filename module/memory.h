// Pool memory and block operations: the module's only source of memory.
#pragma once

#include <stddef.h>

namespace kolm {

// Returns `bytes` bytes of non-paged pool, not zeroed, or null. Level: up to DISPATCH.
void* KolmAllocate(size_t bytes);

// Gives back a block of KolmAllocate; null is not accepted. Level: up to DISPATCH.
void KolmFree(void* block);

// Fills `bytes` bytes with zero.
void KolmZero(void* block, size_t bytes);

// Copies `bytes` bytes; the regions must not overlap.
void KolmCopy(void* destination, const void* source, size_t bytes);

}  // namespace kolm
