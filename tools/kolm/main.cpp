// The command line tool: tries the module's exports on pictures.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "platform/host/host_kernel.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/failure.h"

namespace kolm {
namespace {

constexpr const char* kFooter = R"(
Examples:
  kolm effects
  kolm sheet effects.png
  kolm sheet -y portrait.jpg effects.png
  kolm apply -e sepia portrait.jpg old.png
  kolm apply -e box-blur:4 -e 12 portrait.jpg drawing.png
  kolm store create KolmBg.img beach.jpg window.png
  kolm background --store KolmBg.img --record 2 portrait.jpg travelling.png
  kolm gallery portrait.jpg effects

Exit codes:
  0  done
  1  an unexpected error
  2  the command line is not understood
  3  a picture cannot be read
  4  a picture is too small or too large
  5  there is no such effect
  6  a parameter is out of its range
  7  the output exists already, and -y is not given
  8  the output or the debug log cannot be written
  9  a store cannot be read, or is no whole number of records
  10 there is no such record, or no room for more)";

// Sends the module's debugger lines to a file, to standard error ("-") or nowhere ("").
void DirectDebugLines(const std::string& file) {
  if (file.empty()) {
    host::SetDebugSink([](const std::string&) {});
  } else if (file == "-") {
    host::SetDebugSink([](const std::string& text) { std::cerr << text; });
  } else {
    const auto log = std::make_shared<std::ofstream>(file, std::ios::app);
    if (!*log) {
      throw Failure(ExitCode::UnwritableOutput, "cannot write the debug log '" + file +
                                                    "'; expected a file, or - for " +
                                                    "standard error");
    }
    host::SetDebugSink([log](const std::string& text) { *log << text << std::flush; });
  }
}

int Run(int argumentCount, char** arguments) {
  CLI::App app("Tries Kolm's video effects and background replacement on pictures.", "kolm");
  app.set_version_flag("--version", "kolm " KOLM_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  std::string debugLog;
  app.add_option("--debug-log", debugLog,
                 "Append the module's debugger lines to FILE; - is standard error")
      ->type_name("FILE");

  Work work;
  AddEffectsCommand(app, work);
  AddSheetCommand(app, work);
  AddApplyCommand(app, work);
  AddStoreCommand(app, work);
  AddBackgroundCommand(app, work);
  AddBackgroundSheetCommand(app, work);
  AddGalleryCommand(app, work);
  AddBenchCommand(app, work);

  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_SUCCESS : static_cast<int>(ExitCode::CommandLine);
  }
  DirectDebugLines(debugLog);
  work();
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace kolm

int main(int argumentCount, char** arguments) {
  // A write beyond the allowed file size then fails like any other.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    return kolm::Run(argumentCount, arguments);
  } catch (const kolm::Failure& failure) {
    std::cerr << "kolm: " << failure.what() << '\n';
    return static_cast<int>(failure.code);
  } catch (const std::exception& error) {
    std::cerr << "kolm: unexpected error: " << error.what() << '\n';
    return static_cast<int>(kolm::ExitCode::Unexpected);
  }
}
