// Which of its vector forms the module may use. SSE2 is the floor on every 64-bit machine; nothing
// wider than 128 bits is ever used, since the kernel saves no more for a driver.
#pragma once

#include <stdint.h>

namespace kolm {

enum class InstructionSet : uint32_t {
  Plain,  // the portable loops; only tests and benchmarks ask for it
  SSE2,
  SSSE3,
};

// The best form that this machine runs. Level: any.
InstructionSet AvailableInstructionSet();

}  // namespace kolm
