// The command line tool: tries the module's exports on pictures.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "platform/host/host_kernel.h"
#include "tools/kolm/background_record.h"
#include "tools/kolm/background_store.h"
#include "tools/kolm/beach_scene.h"
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
  kolm store create KolmBg.img beach.jpg window.png
  kolm background --store KolmBg.img --record 2 portrait.jpg travelling.png

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

struct StoreOptions {
  std::string store, output, picture;
  std::vector<std::string> pictures;
  uint32_t number = 0;
  bool stretch = false, overwrite = false;

  Fit PictureFit() const { return stretch ? Fit::Stretch : Fit::Crop; }
  PicturePaths Paths() const { return {pictures.begin(), pictures.end()}; }
};

// Adds `kolm store`. Parsing stores what the chosen subcommand does in `work`.
void AddStoreCommand(CLI::App& app, StoreOptions& options, std::function<void()>& work) {
  CLI::App* store = app.add_subcommand("store", "Make and look at stores of backgrounds");
  store->require_subcommand(1);
  store->footer(
      "A store is a file of records of 921600 bytes: a picture of 640 x 480 pixels and its alpha\n"
      "plane, which tells how far it covers the live picture: 255 wholly, 0 not at all. Records "
      "count\nfrom 1 to at most 2331. Pictures may have any size, with or without an alpha plane; "
      "without one\nthey cover all. They are cropped to 4:3 around their middle, or stretched with "
      "--stretch.");
  const auto add = [&](const char* name, const char* description,
                       const std::function<void()>& command) {
    CLI::App* subcommand = store->add_subcommand(name, description);
    subcommand->add_option("FILE", options.store, "The store")->required()->type_name("");
    subcommand->callback([&work, command] { work = command; });
    return subcommand;
  };
  const auto takesNumber = [&](CLI::App* command) {
    command->add_option("N", options.number, "The record's number, from 1")
        ->required()
        ->type_name("");
  };
  const auto mayStretch = [&](CLI::App* command) {
    command->add_flag("--stretch", options.stretch, "Stretch pictures to 4:3 instead of cropping");
  };

  CLI::App* create = add("create", "Write a new store of pictures", [&] {
    CreateStore(options.store, options.Paths(), options.PictureFit(), options.overwrite);
  });
  create->add_option("PICTURE", options.pictures, "The pictures, in order")->type_name("");
  create->add_flag("-y,--yes", options.overwrite, "Overwrite FILE if it exists");
  mayStretch(create);

  CLI::App* append = add("append", "Add pictures at a store's end", [&] {
    AppendToStore(options.store, options.Paths(), options.PictureFit());
  });
  append->add_option("PICTURE", options.pictures, "The pictures, in order")
      ->required()
      ->type_name("");
  mayStretch(append);

  CLI::App* replace = add("replace", "Put a picture in a record's place", [&] {
    ReplaceInStore(options.store, options.number, options.picture, options.PictureFit());
  });
  takesNumber(replace);
  replace->add_option("PICTURE", options.picture, "The picture")->required()->type_name("");
  mayStretch(replace);

  CLI::App* extract = add("extract", "Write a record as a PNG picture with its alpha plane", [&] {
    ExtractFromStore(options.store, options.number, options.output, options.overwrite);
  });
  takesNumber(extract);
  extract->add_option("OUTPUT", options.output, "The picture's file, .png")
      ->required()
      ->type_name("");
  extract->add_flag("-y,--yes", options.overwrite, "Overwrite OUTPUT if it exists");

  add("list", "List the records: number, mean colour, how much of the live picture they cover",
      [&] { ListStore(options.store); });
  add("verify", "Check that a store is a whole number of records",
      [&] { VerifyStore(options.store); });
}

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

struct BackgroundSheetOptions {
  std::string picture, output;
  bool overwrite = false;
};

void WriteBackgroundSheet(const BackgroundSheetOptions& options) {
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

// An optional argument before one that is needed.
class SheetFormatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App*, std::string name) const override {
    return "Usage: " + name + " [OPTIONS] [PICTURE] OUTPUT\n";
  }
};

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

  StoreOptions store;
  std::function<void()> storeWork;
  AddStoreCommand(app, store, storeWork);

  BackgroundOptions background;
  CLI::App* backgroundCommand =
      app.add_subcommand("background", "Replace a picture's background by a record or a bitmap");
  CLI::Option_group* source = backgroundCommand->add_option_group("Background");
  CLI::Option* storeOption =
      source->add_option("--store", background.store, "Take a record of this store")
          ->type_name("FILE");
  source
      ->add_option("--bitmap", background.bitmap,
                   "Take an uncompressed bitmap file of 24 or 32 bits a pixel")
      ->type_name("FILE");
  source->require_option(1);
  backgroundCommand
      ->add_option("--record", background.record, "The record's number, from 1; by default 1")
      ->needs(storeOption)
      ->type_name("N");
  backgroundCommand->add_option("INPUT", background.input, "The live picture")
      ->required()
      ->type_name("");
  backgroundCommand->add_option("OUTPUT", background.output, "The resulting picture's file")
      ->required()
      ->type_name("");
  backgroundCommand->add_flag("-y,--yes", background.overwrite, "Overwrite OUTPUT if it exists");
  backgroundCommand->footer(
      std::string(kPictures) +
      "\n\nThe module loads the background, scales it to the live picture's size and blends the "
      "two by\nthe background's alpha plane.\n\nExamples:\n  kolm background --store KolmBg.img "
      "--record 2 portrait.jpg travelling.png\n  kolm background --bitmap frame.bmp portrait.jpg "
      "framed.png");

  BackgroundSheetOptions backgroundSheet;
  CLI::App* backgroundSheetCommand = app.add_subcommand(
      "background-sheet",
      "Write a sheet of a live picture, a background, its alpha plane and the result");
  backgroundSheetCommand
      ->add_option("PICTURE", backgroundSheet.picture,
                   "The live picture; without it a built-in sample")
      ->type_name("");
  backgroundSheetCommand->add_option("OUTPUT", backgroundSheet.output, "The sheet's file")
      ->type_name("");
  backgroundSheetCommand->formatter(std::make_shared<SheetFormatter>());
  backgroundSheetCommand->add_flag("-y,--yes", backgroundSheet.overwrite,
                                   "Overwrite OUTPUT if it exists");
  backgroundSheetCommand->footer(
      std::string(kPictures) +
      "\n\nThe background is a built-in picture. Of the sample it leaves the woman, the cat and "
      "the "
      "table;\nof another picture, in which nobody is looked for, a head and shoulders in the "
      "middle.");

  try {
    app.parse(argumentCount, arguments);
    // A single argument has become the first of the two.
    if (sheet.output.empty()) sheet.output.swap(sheet.picture);
    if (*sheetCommand && sheet.output.empty()) throw CLI::RequiredError("OUTPUT");
    if (backgroundSheet.output.empty()) backgroundSheet.output.swap(backgroundSheet.picture);
    if (*backgroundSheetCommand && backgroundSheet.output.empty()) {
      throw CLI::RequiredError("OUTPUT");
    }
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_SUCCESS : static_cast<int>(ExitCode::CommandLine);
  }
  DirectDebugLines(debugLog);
  if (*sheetCommand) {
    WriteSheet(sheet);
  } else if (*applyCommand) {
    ApplyToPicture(apply);
  } else if (storeWork) {
    storeWork();
  } else if (*backgroundCommand) {
    LayBackground(background);
  } else if (*backgroundSheetCommand) {
    WriteBackgroundSheet(backgroundSheet);
  } else {
    PrintEffects();
  }
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
