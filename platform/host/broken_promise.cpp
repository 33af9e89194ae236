// Ends the process for a broken promise.
#include "platform/host/broken_promise.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "platform/host/call_stack.h"

namespace kolm::host {

void BrokenPromise(const char* format, ...) {
  std::fputs("Kolm: ", stderr);
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  std::fprintf(stderr, "\n%s", DescribeCallStack(CaptureCallStack()).c_str());
  std::abort();
}

}  // namespace kolm::host
