// C++ exceptions, which the library throws and the face detector catches: where they are kept, how
// they are raised, and what happens to one that nobody catches. libgcc unwinds with the kernel's
// own unwinder.
#include <stddef.h>
#include <stdint.h>

#include <exception>

#include "platform/kernel_calls.h"

namespace kolm {
namespace {

// As much as throwing needs of the kernel's EXCEPTION_RECORD.
struct ExceptionRecord {
  uint32_t code;
  uint32_t flags;
  ExceptionRecord* nested;
  void* address;
  uint32_t parameterCount;
  uintptr_t parameters[15];
};
static_assert(sizeof(ExceptionRecord) == 152);

constexpr uint32_t kUnhandledException = 0x1E;  // KMODE_EXCEPTION_NOT_HANDLED

// An exception may be thrown while another is on its way, in a destructor or while its text is put
// together. The library's largest takes 160 bytes, the header that the compiler's runtime keeps in
// front of it 160.
constexpr size_t kExceptions = 8;
constexpr size_t kHeaderBytes = 160;
constexpr size_t kExceptionBytes = 512;

struct alignas(16) ExceptionPlace {
  uint8_t bytes[kExceptionBytes];
};

ExceptionPlace places[kExceptions];
bool isTaken[kExceptions];

[[noreturn]] void Stop() { KeBugCheckEx(kUnhandledException, 0, 0, 0, 0); }

}  // namespace
}  // namespace kolm

namespace __cxxabiv1 {

// One thread at a time is in the library: what is kept per thread elsewhere is here once.
struct __cxa_eh_globals {
  void* caught;
  unsigned int uncaught;
};

namespace {
__cxa_eh_globals globals;
}

extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept { return &globals; }
extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept { return &globals; }

// Taken from fixed places, so that running out of memory can be thrown without any. Where they too
// have run out the system stops.
extern "C" void* __cxa_allocate_exception(size_t bytes) noexcept {
  for (size_t i = 0; i < kolm::kExceptions; ++i) {
    if (kolm::isTaken[i] || bytes > kolm::kExceptionBytes - kolm::kHeaderBytes) continue;
    kolm::isTaken[i] = true;
    uint8_t* place = kolm::places[i].bytes;
    __builtin_memset(place, 0, kolm::kHeaderBytes);  // the runtime counts on a zeroed header
    return place + kolm::kHeaderBytes;
  }
  kolm::Stop();
}

extern "C" void __cxa_free_exception(void* exception) noexcept {
  const auto offset = static_cast<size_t>(static_cast<uint8_t*>(exception) - kolm::places[0].bytes);
  if (offset >= sizeof kolm::places) kolm::Stop();
  kolm::isTaken[offset / kolm::kExceptionBytes] = false;
}

// For std::rethrow_exception, which nothing calls.
extern "C" void* __cxa_allocate_dependent_exception() noexcept { kolm::Stop(); }
extern "C" void __cxa_free_dependent_exception(void*) noexcept {}

// Spares the texts that the runtime would print of an exception that nobody catches.
extern std::terminate_handler __terminate_handler;
std::terminate_handler __terminate_handler = kolm::Stop;

}  // namespace __cxxabiv1

extern "C" {

void RtlRaiseException(kolm::ExceptionRecord* record);

// libgcc begins and continues its search for a handler with this.
void RaiseException(uint32_t code, uint32_t flags, uint32_t count, const uintptr_t* parameters) {
  kolm::ExceptionRecord record = {};
  record.code = code;
  record.flags = flags & 1;  // not to be continued
  record.address = __builtin_return_address(0);
  record.parameterCount = count < 15 ? count : 15;
  for (uint32_t i = 0; i < record.parameterCount; ++i) record.parameters[i] = parameters[i];
  RtlRaiseException(&record);
}

// Called where an exception finds no handler or the stack cannot be unwound.
[[noreturn]] void abort() { kolm::Stop(); }
}
