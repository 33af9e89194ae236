// A kernel stack has 24 KB, of which the caller has used a part. The library's deepest function
// would fit; an exception thrown there, which the kernel's unwinder handles further down, might
// not.
#include <stddef.h>
#include <stdint.h>

#include "platform/detector_runtime.h"

extern "C" {

// Runs `work` on the stack as it is where that has `bytes` left, otherwise on an addition to it.
// Level: up to DISPATCH, PASSIVE where it may wait.
int32_t KeExpandKernelStackAndCalloutEx(void (*work)(void* argument), void* argument, size_t bytes,
                                        uint8_t mayWait, void* context);
}

namespace kolm {
namespace {

// Well above what a test under Wine has seen exceptions to need, below the 70 KB that can be had.
constexpr size_t kDeepStack = 48 * 1024;

}  // namespace

bool CallWithDeepStack(void (*work)(void* argument), void* argument) {
  return KeExpandKernelStackAndCalloutEx(work, argument, kDeepStack, 1, nullptr) >= 0;
}

}  // namespace kolm
