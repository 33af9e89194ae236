// Notes and the progress bar.
#include "tools/kolm/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <mutex>

namespace kolm {
namespace {

constexpr const char* kClearLine = "\r\033[K";

std::mutex terminal;
bool isQuiet = false;
bool barIsShown = false;

}  // namespace

void SetQuiet() { isQuiet = true; }

void Tell(const std::string& text) {
  const std::lock_guard lock(terminal);
  if (isQuiet) return;
  std::fprintf(stderr, "%skolm: %s\n", barIsShown ? kClearLine : "", text.c_str());
  barIsShown = false;
}

Progress::Progress(int64_t total)
    : total_(total),
      isShown_(!isQuiet && isatty(STDERR_FILENO) != 0),
      begin_(Clock::now()),
      last_(begin_) {}

Progress::~Progress() {
  const std::lock_guard lock(terminal);
  if (barIsShown) std::fputs(kClearLine, stderr);
  barIsShown = false;
}

void Progress::Show(int64_t done) {
  constexpr auto kEvery = std::chrono::milliseconds(200);
  const Clock::time_point now = Clock::now();
  if (!isShown_ || done == 0 || now - last_ < kEvery) return;
  last_ = now;
  const double seconds = std::chrono::duration<double>(now - begin_).count();
  const double rate = static_cast<double>(done) / seconds;
  const std::lock_guard lock(terminal);
  if (total_ > 0) {
    constexpr int kBar = 24;
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    const int filled = static_cast<int>(part * kBar);
    const long left = std::lround(static_cast<double>(std::max<int64_t>(0, total_ - done)) / rate);
    std::fprintf(stderr, "%s[%.*s%.*s] %3.0f %%  %lld frames  %.1f fps  %ld:%02ld left", kClearLine,
                 filled, "########################", kBar - filled, "........................",
                 part * 100, static_cast<long long>(done), rate, left / 60, left % 60);
  } else {
    std::fprintf(stderr, "%s%lld frames  %.1f fps", kClearLine, static_cast<long long>(done), rate);
  }
  barIsShown = true;
}

}  // namespace kolm
