// The image's entry point. The kernel's loader runs it when the module is started as a driver of its
// own; for a module that a driver imports it calls DllInitialize alone.
#include "platform/kernel/stack_cookie.h"

extern "C" int32_t KolmImageEntry(const void* driverObject, const void* registryPath);

int32_t KolmImageEntry(const void* /*driverObject*/, const void* /*registryPath*/) {
  kolm::InitialiseStackCookie();
  return 0;
}
