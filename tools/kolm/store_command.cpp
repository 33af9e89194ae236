// kolm store: stores of background records.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/kolm/background_store.h"
#include "tools/kolm/commands.h"

namespace kolm {
namespace {

struct StoreOptions {
  std::string store, output, picture;
  std::vector<std::string> pictures;
  uint32_t number = 0;
  bool stretch = false, overwrite = false;

  Fit PictureFit() const { return stretch ? Fit::Stretch : Fit::Crop; }
  PicturePaths Paths() const { return {pictures.begin(), pictures.end()}; }
};

}  // namespace

void AddStoreCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<StoreOptions>();
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
    subcommand->add_option("FILE", options->store, "The store")->required()->type_name("");
    subcommand->callback([&work, command] { work = command; });
    return subcommand;
  };
  const auto takesNumber = [&](CLI::App* command) {
    command->add_option("N", options->number, "The record's number, from 1")
        ->required()
        ->type_name("");
  };
  const auto mayStretch = [&](CLI::App* command) {
    command->add_flag("--stretch", options->stretch, "Stretch pictures to 4:3 instead of cropping");
  };

  CLI::App* create = add("create", "Write a new store of pictures", [options] {
    CreateStore(options->store, options->Paths(), options->PictureFit(), options->overwrite);
  });
  create->add_option("PICTURE", options->pictures, "The pictures, in order")->type_name("");
  create->add_flag("-y,--yes", options->overwrite, "Overwrite FILE if it exists");
  mayStretch(create);

  CLI::App* append = add("append", "Add pictures at a store's end", [options] {
    AppendToStore(options->store, options->Paths(), options->PictureFit());
  });
  append->add_option("PICTURE", options->pictures, "The pictures, in order")
      ->required()
      ->type_name("");
  mayStretch(append);

  CLI::App* replace = add("replace", "Put a picture in a record's place", [options] {
    ReplaceInStore(options->store, options->number, options->picture, options->PictureFit());
  });
  takesNumber(replace);
  replace->add_option("PICTURE", options->picture, "The picture")->required()->type_name("");
  mayStretch(replace);

  CLI::App* extract =
      add("extract", "Write a record as a PNG picture with its alpha plane", [options] {
        ExtractFromStore(options->store, options->number, options->output, options->overwrite);
      });
  takesNumber(extract);
  extract->add_option("OUTPUT", options->output, "The picture's file, .png")
      ->required()
      ->type_name("");
  extract->add_flag("-y,--yes", options->overwrite, "Overwrite OUTPUT if it exists");

  add("list", "List the records: number, mean colour, how much of the live picture they cover",
      [options] { ListStore(options->store); });
  add("verify", "Check that a store is a whole number of records",
      [options] { VerifyStore(options->store); });
}

}  // namespace kolm
