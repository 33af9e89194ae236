// The cookie that the compiler puts behind local arrays and checks before a function returns.
#pragma once

#include <stdint.h>

namespace kolm {

// Replaces the built-in cookie by one that differs from start to start. Must be called where no
// protected function is on the stack.
void InitialiseStackCookie();

}  // namespace kolm
