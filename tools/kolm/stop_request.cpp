// Signals that ask the tool to end its output properly.
#include "tools/kolm/stop_request.h"

#include <poll.h>
#include <signal.h>

#include <atomic>

namespace kolm {
namespace {

std::atomic<bool> stopRequested = false;
static_assert(std::atomic<bool>::is_always_lock_free);

}  // namespace

void WatchForStop() {
  struct sigaction action = {};
  action.sa_handler = [](int) { stopRequested = true; };
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool StopRequested() { return stopRequested; }

void RequestStop() { stopRequested = true; }

void WaitForInput(int file) {
  // The signal may come to another thread, or just before the wait.
  constexpr int kMilliseconds = 50;
  pollfd waited = {file, POLLIN, 0};
  while (!StopRequested() && poll(&waited, 1, kMilliseconds) <= 0) {
  }
}

}  // namespace kolm
