// The command line tool: tries the module's exports on pictures.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/host_kernel.h"
#include "tools/kolm/contact_sheet.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/sample_scene.h"

namespace kolm {
namespace {

constexpr const char* kFooter = R"(
Examples:
  kolm effects
  kolm sheet effects.png
  kolm sheet -y portrait.jpg effects.png
  kolm apply -e sepia portrait.jpg old.png
  kolm apply -e box-blur:4 -e 12 portrait.jpg drawing.png

Exit codes:
  0  done
  1  an unexpected error
  2  the command line is not understood
  3  a picture cannot be read
  4  a picture is too small or too large
  5  there is no such effect
  6  a parameter is out of its range
  7  the output exists already, and -y is not given
  8  the output or the debug log cannot be written)";

constexpr const char* kPictures =
    "Pictures are read in any format that OpenCV knows (PNG, JPEG, BMP, TIFF, WebP, PNM, ...) and\n"
    "written in the format of OUTPUT's extension. Transparent parts are laid on white; of an odd\n"
    "width the last column is left out.";

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

void PrintEffects() {
  std::cout << " id  name                parameter  default\n";
  for (const Effect& effect : ListEffects()) {
    const std::string range =
        std::to_string(effect.minimum) + " to " + std::to_string(effect.maximum);
    std::cout << std::right << std::setw(3) << effect.id << "  " << std::left << std::setw(18)
              << effect.name << "  ";
    if (effect.HasParameter()) {
      std::cout << std::setw(9) << range << "  " << effect.defaultValue << '\n';
    } else {
      std::cout << "none\n";
    }
  }
}

struct SheetOptions {
  std::string picture, output, cells;
  bool overwrite = false;
};

void WriteSheet(const SheetOptions& options) {
  CheckOutput(options.output, options.overwrite);
  const EffectList effects = ListEffects();
  const cv::Mat picture =
      options.picture.empty() ? DrawSampleScene() : ReadPicture(options.picture);
  const cv::Mat source = ReduceToCell(picture);
  const std::vector<cv::Mat> results = ApplyAllEffects(source, effects);
  struct Output {
    std::filesystem::path path;
    cv::Mat picture;
  };
  std::vector<Output> outputs;
  if (!options.cells.empty()) {
    const std::filesystem::path folder = options.cells;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
      throw Failure(ExitCode::UnwritableOutput, "cannot make the directory '" + options.cells +
                                                    "': " + error.message() +
                                                    "; expected one that exists or can be made");
    }
    outputs.push_back({folder / "source.png", source});
    for (size_t i = 0; i < results.size(); ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "effect-%02u.png", effects[i].id);
      outputs.push_back({folder / name, results[i]});
    }
  }
  outputs.push_back({options.output, DrawContactSheet(source, results, effects)});
  for (const Output& output : outputs) CheckOutput(output.path, options.overwrite);
  for (const Output& output : outputs) {
    WritePicture(output.picture, output.path, options.overwrite);
  }
  Kolm_VE_UninitVideoEffect();
}

struct ApplyOptions {
  std::vector<std::string> effects;
  std::string input, output;
  bool overwrite = false;
};

void ApplyToPicture(const ApplyOptions& options) {
  const EffectList effects = ListEffects();
  std::vector<EffectUse> uses;
  for (const std::string& text : options.effects) uses.push_back(ParseEffectUse(effects, text));
  CheckOutput(options.output, options.overwrite);
  const cv::Mat picture = ReadPicture(options.input);
  WritePicture(ApplyEffects(picture, uses), options.output, options.overwrite);
  Kolm_VE_UninitVideoEffect();
}

// An optional argument before one that is needed.
class SheetFormatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App*, std::string name) const override {
    return "Usage: " + name + " [OPTIONS] [PICTURE] OUTPUT\n";
  }
};

int Run(int argumentCount, char** arguments) {
  CLI::App app("Tries Kolm's video effects on pictures.", "kolm");
  app.set_version_flag("--version", "kolm " KOLM_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  std::string debugLog;
  app.add_option("--debug-log", debugLog,
                 "Append the module's debugger lines to FILE; - is standard error")
      ->type_name("FILE");

  app.add_subcommand("effects", "List the effects: id, name, parameter range, default");

  SheetOptions sheet;
  CLI::App* sheetCommand = app.add_subcommand(
      "sheet", "Write a contact sheet: a picture and all effects on it at their defaults");
  sheetCommand->add_option("PICTURE", sheet.picture, "The picture; without it a built-in sample")
      ->type_name("");
  sheetCommand->add_option("OUTPUT", sheet.output, "The sheet's file")->type_name("");
  sheetCommand->formatter(std::make_shared<SheetFormatter>());
  sheetCommand
      ->add_option("--cells", sheet.cells,
                   "Also write each picture of the sheet: source.png, effect-01.png, ...")
      ->type_name("DIR");
  sheetCommand->add_flag("-y,--yes", sheet.overwrite, "Overwrite what exists");
  sheetCommand->footer(std::string(kPictures) +
                       "\n\nThe picture is first reduced to 320 pixels' width, so that each pixel "
                       "of a cell is one that\nan effect wrote.\n\nExamples:\n  kolm sheet "
                       "effects.png\n  kolm sheet -y --cells cells portrait.jpg effects.png");

  ApplyOptions apply;
  CLI::App* applyCommand = app.add_subcommand("apply", "Apply effects to a picture");
  applyCommand
      ->add_option("-e,--effect", apply.effects,
                   "An effect by name or id, with a parameter or at its default; may be repeated: "
                   "effects are applied in the order given")
      ->required()
      ->allow_extra_args(false)
      ->type_name("NAME|ID[:PARAM]");
  applyCommand->add_option("INPUT", apply.input, "The picture")->required()->type_name("");
  applyCommand->add_option("OUTPUT", apply.output, "The resulting picture's file")
      ->required()
      ->type_name("");
  applyCommand->add_flag("-y,--yes", apply.overwrite, "Overwrite OUTPUT if it exists");
  applyCommand->footer(std::string(kPictures) +
                       "\n\nExamples:\n  kolm apply -e sepia portrait.jpg old.png\n  kolm apply -e "
                       "box-blur:4 -e 12 portrait.jpg drawing.png");

  try {
    app.parse(argumentCount, arguments);
    // A single argument has become the first of the two.
    if (sheet.output.empty()) sheet.output.swap(sheet.picture);
    if (*sheetCommand && sheet.output.empty()) throw CLI::RequiredError("OUTPUT");
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_SUCCESS : static_cast<int>(ExitCode::CommandLine);
  }
  DirectDebugLines(debugLog);
  if (*sheetCommand) {
    WriteSheet(sheet);
  } else if (*applyCommand) {
    ApplyToPicture(apply);
  } else {
    PrintEffects();
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace kolm

int main(int argumentCount, char** arguments) {
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
