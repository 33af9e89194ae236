// Sends the module's debugger lines where they are wanted.
#include "tools/kolm/debug_log.h"

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

}  // namespace

void DirectDebugLines(const std::string& file) {
  if (file == "-") {
    written = [](const std::string& text) { std::cerr << text; };
  } else if (!file.empty()) {
    const auto log = std::make_shared<std::ofstream>(file, std::ios::app);
    if (!*log) {
      throw Failure(ExitCode::UnwritableOutput, "cannot write the debug log '" + file +
                                                    "'; expected a file, or - for " +
                                                    "standard error");
    }
    written = [log](const std::string& text) { *log << text << std::flush; };
  }
  host::SetDebugSink(written);
}

void ObserveDebugLines(std::function<void(const std::string& text)> observer) {
  host::SetDebugSink([observer = std::move(observer)](const std::string& text) {
    written(text);
    observer(text);
  });
}

}  // namespace kolm
