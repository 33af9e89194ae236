// Signals that ask the tool to end its output properly.
#include "tools/kolm/stop_request.h"

#include <poll.h>
#include <signal.h>

#include <atomic>

#include "tools/kolm/new_file.h"

namespace kolm {
namespace {

std::atomic<bool> stopRequested = false, isWatched = false;
static_assert(std::atomic<bool>::is_always_lock_free);

// With what the signal does by itself.
void SetDefault(int signal) {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
}

void OnSignal(int signal) {
  if (isWatched.exchange(false)) {
    stopRequested = true;
    return;
  }
  NewFile::RemoveUnfinished();
  SetDefault(signal);
  raise(signal);
}

}  // namespace

void WatchForStop() { isWatched = true; }

void CleanUpOnSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action = {};
    // A run under nohup goes on when the terminal is closed.
    if (signal == SIGHUP && sigaction(signal, nullptr, &action) == 0 &&
        action.sa_handler == SIG_IGN) {
      continue;
    }
    action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
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
