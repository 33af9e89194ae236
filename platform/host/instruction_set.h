// Host only: holds the module to one instruction set, for tests and benchmarks.
#pragma once

#include "platform/instruction_set.h"

namespace kolm::host {

// What the processor runs, whatever is forced.
InstructionSet BestInstructionSet();

// AvailableInstructionSet answers with `set` from now on, in all threads; it must not be above
// BestInstructionSet. The environment variable KOLM_INSTRUCTION_SET (plain, sse2 or ssse3) does the
// same from the start.
void ForceInstructionSet(InstructionSet set);

}  // namespace kolm::host
