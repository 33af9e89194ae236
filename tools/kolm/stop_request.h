// Ctrl-C and the like: asked for by a signal, looked at between frames.
#pragma once

namespace kolm {

// From now on SIGINT, SIGTERM and SIGHUP end the process without leaving half a file behind.
void CleanUpOnSignals();

// From now on the first of them only asks to stop.
void WatchForStop();

bool StopRequested();

// As if such a signal had come.
void RequestStop();

// Waits until the file can be read or a stop is requested.
void WaitForInput(int file);

}  // namespace kolm
