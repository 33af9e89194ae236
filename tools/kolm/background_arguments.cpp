// Records and bitmaps as backgrounds.
#include "tools/kolm/background_arguments.h"

#include <CLI/CLI.hpp>

#include "tools/kolm/background_record.h"
#include "tools/kolm/background_store.h"

namespace kolm {

void AddBackgroundArguments(CLI::App* command, BackgroundArguments& arguments, size_t least) {
  CLI::Option_group* source = command->add_option_group("Background");
  CLI::Option* storeOption =
      source
          ->add_option("--store", arguments.store,
                       "Take a record of this store, which the command store makes")
          ->type_name("FILE");
  source
      ->add_option("--bitmap", arguments.bitmap,
                   "Take an uncompressed bitmap file of 24 or 32 bits a pixel; a note tells if it "
                   "ends early")
      ->type_name("FILE");
  source->require_option(least, 1);
  command->add_option("--record", arguments.record, "The record's number, from 1; by default 1")
      ->needs(storeOption)
      ->type_name("N");
}

std::vector<uint8_t> LoadBackground(const BackgroundArguments& arguments) {
  if (!arguments.bitmap.empty()) return LoadFromBitmap(arguments.bitmap);
  CheckBackgrounds(arguments.store);
  // For a record that is not there the module would read nothing and succeed.
  CheckRecord(arguments.store, arguments.record);
  return LoadFromStore(arguments.store, arguments.record);
}

}  // namespace kolm
