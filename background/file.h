// Files as the background family opens them: for reading, by nobody else at the same time.
#pragma once

#include <stdint.h>

namespace kolm {

enum : int32_t {
  kStatusSuccess = 0,
  kStatusUnsuccessful = static_cast<int32_t>(0xC0000001),
  kStatusInsufficientResources = static_cast<int32_t>(0xC000009A),
  kStatusNameTooLong = static_cast<int32_t>(0xC0000106),
};

inline bool Succeeded(int32_t status) { return status >= 0; }

// Opens the file with the zero-terminated name `path` and stores its handle, or null. Logs a
// failure. A name of more than 32766 characters does not fit the kernel's counted strings and is
// refused with kStatusNameTooLong. Level: PASSIVE.
int32_t OpenFile(const char16_t* path, void** file);

// Asks for the file's standard information and stores the position of its end, 0 if that fails.
int32_t QueryEndOfFile(void* file, int64_t* endOfFile);

// Reads up to `bytes` bytes at `offset` and stores how many there were, 0 if the read fails.
int32_t ReadFile(void* file, int64_t offset, void* buffer, uint32_t bytes, uint32_t* transferred);

}  // namespace kolm
