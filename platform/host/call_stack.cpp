// Call stacks by the C library's unwinder.
#include "platform/host/call_stack.h"

#include <execinfo.h>

#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <string_view>

namespace kolm::host {

CallStack CaptureCallStack() {
  CallStack stack;
  stack.depth = backtrace(stack.frames, std::size(stack.frames));
  return stack;
}

uint64_t HashCallStack(const CallStack& stack) {
  if (stack.depth == 0) return 0;
  return std::hash<std::string_view>{}(
      {reinterpret_cast<const char*>(stack.frames), stack.depth * sizeof stack.frames[0]});
}

std::string DescribeCallStack(const CallStack& stack) {
  const std::unique_ptr<char*, decltype(&std::free)> names(
      backtrace_symbols(stack.frames, stack.depth), &std::free);
  std::string text;
  for (int i = 0; names != nullptr && i < stack.depth; ++i) {
    text.append("  ").append(names.get()[i]).append("\n");
  }
  return text;
}

}  // namespace kolm::host
