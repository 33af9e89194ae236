// The entry points that the kernel's loader calls for an export library.
#pragma once

#include "platform/kernel_calls.h"

extern "C" {

// Called once when the first importing driver is loaded; serviceKey names the module's registry
// key. Writes its debugger line and returns 0. Level: PASSIVE.
int32_t DllInitialize(const CountedString* serviceKey);

// Called when the last importing driver is gone. Writes its debugger line and returns 0; frees
// nothing: each family's own Uninit is the client's to call. Level: PASSIVE.
int32_t DllUnload();
}
