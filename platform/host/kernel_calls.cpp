#include "platform/kernel_calls.h"
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
void* ExAllocatePoolWithTag(int32_t, size_t bytes, uint32_t) { return std::malloc(bytes); }
void ExFreePool(void* block) { std::free(block); }
uint32_t DbgPrint(const char*, ...) { return 0; }
void KeBugCheckEx(uint32_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t) { std::abort(); }
