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

// A file by name. Laid out as the kernel's OBJECT_ATTRIBUTES.
struct ObjectAttributes {
  uint32_t length;  // of this structure
  void* rootDirectory;
  const CountedString* objectName;
  uint32_t attributes;
  void* securityDescriptor;
  void* securityQualityOfService;
};
static_assert(sizeof(ObjectAttributes) == 48);

// Laid out as the kernel's IO_STATUS_BLOCK.
struct IoStatusBlock {
  union {
    int32_t status;
    void* pointer;
  };
  uintptr_t information;  // bytes transferred
};
static_assert(sizeof(IoStatusBlock) == 16);

// Laid out as the kernel's FILE_STANDARD_INFORMATION.
struct FileStandardInformation {
  int64_t allocationSize;
  int64_t endOfFile;
  uint32_t numberOfLinks;
  uint8_t deletePending;
  uint8_t directory;
};
static_assert(sizeof(FileStandardInformation) == 24);

enum : int32_t { kFileStandardInformation = 5 };

// The file calls: NTSTATUS results, negative for a failure. Level: PASSIVE.

// Opens a file and stores its handle; on a failure *file stays as it was.
int32_t ZwCreateFile(void** file, uint32_t desiredAccess, const ObjectAttributes* objectAttributes,
                     IoStatusBlock* ioStatus, const int64_t* allocationSize,
                     uint32_t fileAttributes, uint32_t shareAccess, uint32_t createDisposition,
                     uint32_t createOptions, void* eaBuffer, uint32_t eaLength);

// Stores what informationClass asks for.
int32_t ZwQueryInformationFile(void* file, IoStatusBlock* ioStatus, void* information,
                               uint32_t length, int32_t informationClass);

// Reads up to `length` bytes at *byteOffset. Less than that at the end of the file is a success;
// the end itself is the failure 0xC0000011.
int32_t ZwReadFile(void* file, void* event, void* apcRoutine, void* apcContext,
                   IoStatusBlock* ioStatus, void* buffer, uint32_t length,
                   const int64_t* byteOffset, const uint32_t* key);

int32_t ZwClose(void* handle);

// Stops the system.
[[noreturn]] void KeBugCheckEx(uint32_t code, uintptr_t parameter1, uintptr_t parameter2,
                               uintptr_t parameter3, uintptr_t parameter4);
}
