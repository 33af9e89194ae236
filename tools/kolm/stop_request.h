// Ctrl-C and the like: asked for by a signal, looked at between frames.
#pragma once

namespace kolm {

// From now on the first SIGINT or SIGTERM only asks to stop; a second one ends the process.
void WatchForStop();

bool StopRequested();

// As if such a signal had come.
void RequestStop();

// Waits until the file can be read or a stop is requested.
void WaitForInput(int file);

}  // namespace kolm
