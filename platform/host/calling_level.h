// The highest level that a kernel call may be made at.
#pragma once

#include <cstdint>

namespace kolm::host {

// Ends the process if the calling thread's level is above `highest`.
void DemandLevel(uint8_t highest, const char* call);

}  // namespace kolm::host
