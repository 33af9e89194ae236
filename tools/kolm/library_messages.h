// Keeps from the user what libraries write to standard error of their own accord.
#pragma once

namespace kolm {

// Makes QuietLibraries work. To be called once, before there are threads.
void WatchStandardError();

// While one lives, what its thread writes to stderr or std::cerr goes nowhere. What the tool itself
// has to say is to be said before or after.
class QuietLibraries {
 public:
  QuietLibraries();
  ~QuietLibraries();
  QuietLibraries(const QuietLibraries&) = delete;
  QuietLibraries& operator=(const QuietLibraries&) = delete;
};

}  // namespace kolm
