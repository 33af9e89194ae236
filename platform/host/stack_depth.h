// Keeps what a kernel call uses of the stack on the host out of StackDepth's figure: the kernel's
// own calls need other amounts.
#pragma once

namespace kolm::host {

// Stands in the entry of each kernel call, around the work, which is done out of line.
class HostStackUse {
 public:
  HostStackUse();
  ~HostStackUse();
  HostStackUse(const HostStackUse&) = delete;
  HostStackUse& operator=(const HostStackUse&) = delete;
};

}  // namespace kolm::host
