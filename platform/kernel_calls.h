// The kernel calls that the module makes, and no others. In Kolm.sys they are the kernel's own; the
// host library gets them from platform/host/.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

// A counted string of 16-bit characters; both lengths are in bytes. Laid out as the kernel's
// UNICODE_STRING.
struct CountedString {
  uint16_t length;
  uint16_t maximumLength;
  const char16_t* buffer;
};

// Pool types of ExAllocatePoolWithTag.
enum : int32_t { kNonPagedPool = 0 };

// Bug check of a damaged stack cookie.
enum : uint32_t { kDriverOverranStackBuffer = 0xF7 };

// Returns a block of `bytes` bytes, 16-byte aligned and not zeroed, or null. Level: up to DISPATCH.
void* ExAllocatePoolWithTag(int32_t poolType, size_t bytes, uint32_t tag);

// Gives a block back. Level: up to DISPATCH.
void ExFreePool(void* block);

// Prints to the kernel debugger. Level: any; PASSIVE where the format asks for 16-bit characters.
uint32_t DbgPrint(const char* format, ...);

// Stops the system.
[[noreturn]] void KeBugCheckEx(uint32_t code, uintptr_t parameter1, uintptr_t parameter2,
                               uintptr_t parameter3, uintptr_t parameter4);
}
