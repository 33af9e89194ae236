// Call stacks: taken cheaply, given names only when shown.
#pragma once

#include <cstdint>
#include <string>

namespace kolm::host {

struct CallStack {
  void* frames[24];
  int depth = 0;
};

// The innermost frames of the caller.
CallStack CaptureCallStack();

// Equal for equal stacks of one process.
uint64_t HashCallStack(const CallStack& stack);

// One frame a line, each ended by a line feed.
std::string DescribeCallStack(const CallStack& stack);

}  // namespace kolm::host
