// kolm sheet: a picture and all effects on it.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/kolm/commands.h"
#include "tools/kolm/contact_sheet.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/picture_arguments.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/sample_scene.h"

namespace kolm {
namespace {

struct SheetOptions : PictureArguments {
  std::string cells;
};

void WriteSheet(const SheetOptions& options) {
  CheckOutput(options.output, options.overwrite);
  const EffectList effects = ListEffects();
  const cv::Mat picture =
      options.picture.empty() ? DrawSampleScene() : ReadPicture(options.picture);
  const cv::Mat source = ReduceToCell(picture, kEffectCellWidth);
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

}  // namespace

void AddSheetCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<SheetOptions>();
  CLI::App* command = app.add_subcommand(
      "sheet", "Write a contact sheet: a picture and all effects on it at their defaults");
  AddOptionalPicture(command, *options, {"PICTURE", "The picture; without it a built-in sample"},
                     {"OUTPUT", "The sheet's file"},
                     [&work, options] { work = [options] { WriteSheet(*options); }; });
  command
      ->add_option("--cells", options->cells,
                   "Also write each picture of the sheet: source.png, effect-01.png, ...")
      ->type_name("DIR");
  command->footer(std::string(kAboutPictures) +
                  "\n\nThe picture is first reduced to 320 pixels' width, so that each pixel "
                  "of a cell is one that\nan effect wrote.\n\nExamples:\n  kolm sheet "
                  "effects.png\n  kolm sheet -y --cells cells portrait.jpg effects.png");
}

}  // namespace kolm
