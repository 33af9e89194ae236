// Asks the processor once; later calls read the answer.
#include "platform/instruction_set.h"

#include <cpuid.h>

namespace kolm {
namespace {

constexpr uint32_t kUnknown = ~uint32_t{0};
uint32_t known = kUnknown;

InstructionSet AskProcessor() {
  uint32_t eax = 0;
  uint32_t ebx = 0;
  uint32_t ecx = 0;
  uint32_t edx = 0;
  __get_cpuid(1, &eax, &ebx, &ecx, &edx);
  return (ecx & bit_SSSE3) != 0 ? InstructionSet::SSSE3 : InstructionSet::SSE2;
}

}  // namespace

// Threads that race here store the same word.
InstructionSet AvailableInstructionSet() {
  uint32_t set = __atomic_load_n(&known, __ATOMIC_RELAXED);
  if (set == kUnknown) {
    set = static_cast<uint32_t>(AskProcessor());
    __atomic_store_n(&known, set, __ATOMIC_RELAXED);
  }
  return static_cast<InstructionSet>(set);
}

}  // namespace kolm
