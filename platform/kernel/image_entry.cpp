// The image's entry point. The kernel's loader runs it when the module is started as a driver of
// its own; for a module that a driver imports it calls DllInitialize alone.
#include <stddef.h>

#include "platform/kernel/stack_cookie.h"

namespace kolm {
namespace {

// As much of the kernel's DRIVER_OBJECT as the entry fills in.
struct DriverObject {
  uint8_t otherFields[0x68];
  void (*unload)(DriverObject* driver);
};
static_assert(offsetof(DriverObject, unload) == 0x68);

void Unload(DriverObject* /*driver*/) {}

}  // namespace
}  // namespace kolm

extern "C" int32_t KolmImageEntry(kolm::DriverObject* driver, const void* registryPath);

int32_t KolmImageEntry(kolm::DriverObject* driver, const void* /*registryPath*/) {
  kolm::InitialiseStackCookie();
  driver->unload = kolm::Unload;  // a driver without one cannot be stopped
  return 0;
}
