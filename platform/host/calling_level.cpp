// The calling level that a thread pretends to run at.
#include "platform/host/calling_level.h"

#include "platform/host/broken_promise.h"
#include "platform/host/host_kernel.h"

namespace kolm::host {
namespace {

thread_local uint8_t currentLevel = kPassiveLevel;

}  // namespace

void SetCallingLevel(uint8_t level) { currentLevel = level; }

uint8_t CallingLevel() { return currentLevel; }

void DemandLevel(uint8_t highest, const char* call) {
  if (currentLevel > highest) {
    BrokenPromise("%s called at level %d, highest is %d", call, currentLevel, highest);
  }
}

}  // namespace kolm::host
