// Where every broken promise of the module ends.
#pragma once

namespace kolm::host {

// Prints the message and the call stack on standard error and aborts.
[[noreturn, gnu::format(printf, 1, 2)]] void BrokenPromise(const char* format, ...);

}  // namespace kolm::host
