// The host's choice of vector forms, which a caller or the environment can hold back.
#include "platform/host/instruction_set.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kolm {
namespace {

InstructionSet FromEnvironment() {
  const InstructionSet best = host::BestInstructionSet();
  const char* name = std::getenv("KOLM_INSTRUCTION_SET");
  if (name == nullptr) return best;
  if (std::strcmp(name, "plain") == 0) return InstructionSet::Plain;
  if (std::strcmp(name, "sse2") == 0) return InstructionSet::SSE2;
  if (std::strcmp(name, "ssse3") == 0) return best;
  std::fprintf(stderr, "KOLM_INSTRUCTION_SET is '%s'; it must be plain, sse2 or ssse3\n", name);
  std::exit(2);
}

std::atomic<InstructionSet>& Current() {
  static std::atomic<InstructionSet> current{FromEnvironment()};
  return current;
}

}  // namespace

InstructionSet AvailableInstructionSet() { return Current().load(std::memory_order_relaxed); }

namespace host {

InstructionSet BestInstructionSet() {
  return __builtin_cpu_supports("ssse3") ? InstructionSet::SSSE3 : InstructionSet::SSE2;
}

void ForceInstructionSet(InstructionSet set) { Current().store(set, std::memory_order_relaxed); }

}  // namespace host
}  // namespace kolm
