// The compiler's stack protector, ending in the kernel's bug check for an overrun stack buffer.
#include "platform/kernel/stack_cookie.h"

#include <stddef.h>
#include <x86intrin.h>

#include "platform/kernel_calls.h"

extern "C" {

// In effect until the image entry has run, and for good where the loader skips it. The two highest
// bytes are zero, so that no string operation writes a whole cookie.
uintptr_t __stack_chk_guard = 0x00002B992DDFA232;

[[noreturn]] void KolmStackCookieBroken(const uintptr_t* frame, uintptr_t difference1,
                                        uintptr_t difference2);

// The compiler calls this with the difference between the damaged cookie and the right one in a
// register that it had free at the end of the damaged function, rax or rdx, and with that
// function's frame right above the return address.
[[noreturn]] __attribute__((naked)) void __stack_chk_fail() {
  asm("leaq 8(%rsp), %rcx\n\t"
      "movq %rdx, %r8\n\t"
      "movq %rax, %rdx\n\t"
      "andq $-16, %rsp\n\t"
      "subq $32, %rsp\n\t"
      "call KolmStackCookieBroken");
}
}

namespace kolm {
namespace {

// A protected frame stays below the size at which the compiler would probe the stack.
constexpr size_t kLargestFrameWords = 4096 / sizeof(uintptr_t);

}  // namespace

void InitialiseStackCookie() {
  const uintptr_t seed = __rdtsc() ^ reinterpret_cast<uintptr_t>(&__stack_chk_guard);
  const uintptr_t cookie = (seed * 0x9E3779B97F4A7C15) >> 16;
  if (cookie != 0) __stack_chk_guard = cookie;
}

}  // namespace kolm

// The true difference leads to a value that stands in the damaged frame; where neither is found,
// the first is taken for it. A difference of 0 is no damage.
__attribute__((no_stack_protector)) void KolmStackCookieBroken(const uintptr_t* frame,
                                                               uintptr_t difference1,
                                                               uintptr_t difference2) {
  const uintptr_t cookie = __stack_chk_guard;
  uintptr_t damaged = cookie + difference1;
  for (size_t i = 0; i < kolm::kLargestFrameWords; ++i) {
    if (difference1 != 0 && frame[i] == cookie + difference1) break;
    if (difference2 != 0 && frame[i] == cookie + difference2) {
      damaged = cookie + difference2;
      break;
    }
  }
  KeBugCheckEx(kDriverOverranStackBuffer, damaged, cookie, ~cookie, 0);
}
