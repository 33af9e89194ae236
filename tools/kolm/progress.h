// What the tool says on standard error while it works.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kolm {

// No word but failures from now on.
void SetQuiet();

// A line for the user, above the progress bar if there is one.
void Tell(const std::string& text);

// A bar with frames per second and the time left, on a terminal only.
class Progress {
 public:
  // `total` is 0 where it is not known.
  explicit Progress(int64_t total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(int64_t done);

 private:
  using Clock = std::chrono::steady_clock;
  int64_t total_;
  bool isShown_;
  Clock::time_point begin_, last_;
};

}  // namespace kolm
