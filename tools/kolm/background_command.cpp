// kolm background: a record or a bitmap over a live picture.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/kolm/background_record.h"
#include "tools/kolm/background_store.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/picture_arguments.h"
#include "tools/kolm/picture_file.h"

namespace kolm {
namespace {

struct BackgroundOptions {
  std::string store, bitmap, input, output;
  uint32_t record = 1;
  bool overwrite = false;
};

void LayBackground(const BackgroundOptions& options) {
  CheckOutput(options.output, options.overwrite);
  std::vector<uint8_t> record;
  if (options.bitmap.empty()) {
    // For a record that is not there the module would read nothing and succeed.
    CheckRecord(options.store, options.record);
    record = LoadFromStore(options.store, options.record);
  } else {
    record = LoadFromBitmap(options.bitmap);
  }
  const cv::Mat live = ReadPicture(options.input);
  WritePicture(ReplaceBackground(live, record).result, options.output, options.overwrite);
}

}  // namespace

void AddBackgroundCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<BackgroundOptions>();
  CLI::App* command =
      app.add_subcommand("background", "Replace a picture's background by a record or a bitmap");
  CLI::Option_group* source = command->add_option_group("Background");
  CLI::Option* storeOption =
      source->add_option("--store", options->store, "Take a record of this store")
          ->type_name("FILE");
  source
      ->add_option("--bitmap", options->bitmap,
                   "Take an uncompressed bitmap file of 24 or 32 bits a pixel")
      ->type_name("FILE");
  source->require_option(1);
  command->add_option("--record", options->record, "The record's number, from 1; by default 1")
      ->needs(storeOption)
      ->type_name("N");
  command->add_option("INPUT", options->input, "The live picture")->required()->type_name("");
  command->add_option("OUTPUT", options->output, "The resulting picture's file")
      ->required()
      ->type_name("");
  command->add_flag("-y,--yes", options->overwrite, "Overwrite OUTPUT if it exists");
  command->footer(
      std::string(kAboutPictures) +
      "\n\nThe module loads the background, scales it to the live picture's size and blends the "
      "two by\nthe background's alpha plane.\n\nExamples:\n  kolm background --store KolmBg.img "
      "--record 2 portrait.jpg travelling.png\n  kolm background --bitmap frame.bmp portrait.jpg "
      "framed.png");
  command->callback([&work, options] { work = [options] { LayBackground(*options); }; });
}

}  // namespace kolm
