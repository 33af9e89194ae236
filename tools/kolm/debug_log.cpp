// Sends the module's debugger lines where they are wanted.
#include "tools/kolm/debug_log.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <utility>

#include "platform/host/host_kernel.h"
#include "tools/kolm/failure.h"

namespace kolm {
namespace {

using LineSink = std::function<void(const std::string&)>;

LineSink written = [](const std::string&) {};
std::string logName;
int firstError = 0;

void WriteLine(std::ostream& log, const std::string& text) {
  if (firstError != 0) return;
  errno = 0;
  if (!(log << text << std::flush)) firstError = errno != 0 ? errno : EIO;
}

[[noreturn]] void FailToLog(int error) {
  throw Failure(ExitCode::UnwritableOutput,
                "cannot write the debug log '" + logName + "': " + std::strerror(error) +
                    "; expected a file that can be written to, or - for standard error");
}

}  // namespace

void DirectDebugLines(const std::string& file) {
  logName = file;
  if (file == "-") {
    written = [](const std::string& text) { WriteLine(std::cerr, text); };
  } else if (!file.empty()) {
    const auto log = std::make_shared<std::ofstream>(file, std::ios::app);
    if (!*log) FailToLog(errno);
    written = [log](const std::string& text) { WriteLine(*log, text); };
  }
  host::SetDebugSink(written);
}

void CheckDebugLines() {
  if (firstError != 0) FailToLog(firstError);
}

void ObserveDebugLines(std::function<void(const std::string& text)> observer) {
  host::SetDebugSink([observer = std::move(observer)](const std::string& text) {
    written(text);
    observer(text);
  });
}

}  // namespace kolm
