// kolm background-sheet: the steps of a background replacement.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/kolm/background_record.h"
#include "tools/kolm/beach_scene.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/contact_sheet.h"
#include "tools/kolm/picture_arguments.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/sample_scene.h"

namespace kolm {
namespace {

void WriteBackgroundSheet(const PictureArguments& options) {
  CheckOutput(options.output, options.overwrite);
  const bool isSample = options.picture.empty();
  const cv::Mat live = ReduceToCell(isSample ? DrawSampleScene() : ReadPicture(options.picture),
                                    kBackgroundCellWidth);
  cv::Mat background;
  cv::merge(std::vector<cv::Mat>{DrawBeachScene(),
                                 isSample ? DrawSampleRoomCover() : DrawPortraitCover()},
            background);
  const std::vector<uint8_t> record = RecordFromPicture(background, Fit::Crop);
  WritePicture(DrawBackgroundSheet(live, ReplaceBackground(live, record)), options.output,
               options.overwrite);
}

}  // namespace

void AddBackgroundSheetCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<PictureArguments>();
  CLI::App* command = app.add_subcommand(
      "background-sheet",
      "Write a sheet of a live picture, a background, its alpha plane and the result");
  AddOptionalPicture(command, *options,
                     {"PICTURE", "The live picture; without it a built-in sample"},
                     {"OUTPUT", "The sheet's file"},
                     [&work, options] { work = [options] { WriteBackgroundSheet(*options); }; });
  command->footer(
      std::string(kAboutPictures) +
      "\n\nThe background is a built-in picture. Of the sample it leaves the woman, the cat and "
      "the "
      "table;\nof another picture, in which nobody is looked for, a head and shoulders in the "
      "middle.");
}

}  // namespace kolm
