// Bug checks: a jump back to the test that expects one, or the end of the process.
#include <csetjmp>

#include "platform/host/broken_promise.h"
#include "platform/host/host_kernel.h"
#include "platform/kernel_calls.h"

namespace kolm::host {
namespace {

struct Expectation {
  Expectation() : outer(current) { current = this; }
  ~Expectation() { current = outer; }

  std::jmp_buf stopped;
  BugCheck seen{};
  Expectation* const outer;
  static thread_local Expectation* current;
};

thread_local Expectation* Expectation::current = nullptr;

}  // namespace

bool ExpectBugCheck(const std::function<void()>& run, BugCheck* check) {
  Expectation expectation;
  if (setjmp(expectation.stopped) != 0) {
    *check = expectation.seen;
    return true;
  }
  run();
  return false;
}

}  // namespace kolm::host

void KeBugCheckEx(uint32_t code, uintptr_t parameter1, uintptr_t parameter2, uintptr_t parameter3,
                  uintptr_t parameter4) {
  using kolm::host::Expectation;
  if (Expectation::current == nullptr) {
    kolm::host::BrokenPromise("bug check 0x%08x (0x%016zx, 0x%016zx, 0x%016zx, 0x%016zx)", code,
                              parameter1, parameter2, parameter3, parameter4);
  }
  Expectation::current->seen = {code, {parameter1, parameter2, parameter3, parameter4}};
  std::longjmp(Expectation::current->stopped, 1);
}
