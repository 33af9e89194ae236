// Puts a stream in the place of stderr that asks whose the text is. Several libraries of picture
// formats, and that of Wayland, print to stderr and cannot be told not to. The descriptor is left
// alone: turning it away would take other threads' notes and progress with it, and the last words
// of a crash.
#include "tools/kolm/library_messages.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ext/stdio_sync_filebuf.h>
#include <iostream>

namespace kolm {
namespace {

thread_local int quiets = 0;

ssize_t PassOn(void*, const char* text, size_t size) {
  if (quiets > 0) return static_cast<ssize_t>(size);
  ssize_t written = 0;
  do {
    written = write(STDERR_FILENO, text, size);
  } while (written < 0 && errno == EINTR);
  return written < 0 ? 0 : written;
}

}  // namespace

void WatchStandardError() {
  cookie_io_functions_t functions = {};
  functions.write = PassOn;
  std::FILE* stream = fopencookie(nullptr, "w", functions);
  if (stream == nullptr) return;
  std::setvbuf(stream, nullptr, _IONBF, 0);
  stderr = stream;
  // Lives on, as std::cerr does, until the process ends.
  static auto* const buffer = new __gnu_cxx::stdio_sync_filebuf<char>(stream);
  std::cerr.rdbuf(buffer);
}

QuietLibraries::QuietLibraries() { ++quiets; }

QuietLibraries::~QuietLibraries() { --quiets; }

}  // namespace kolm
