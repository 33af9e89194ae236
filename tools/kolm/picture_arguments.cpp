// An optional picture before an output.
#include "tools/kolm/picture_arguments.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace kolm {
namespace {

// An optional argument before one that is needed.
class OptionalPictureFormatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App*, std::string name) const override {
    return "Usage: " + name + " [OPTIONS] [PICTURE] OUTPUT\n";
  }
};

}  // namespace

const char* const kAboutPictures =
    "Pictures are read in any format that OpenCV knows (PNG, JPEG, BMP, TIFF, WebP, PNM, ...) and\n"
    "written in the format of OUTPUT's extension. Transparent parts are laid on white; of an odd\n"
    "width the last column is left out.";

void AddOptionalPicture(CLI::App* command, PictureArguments& arguments,
                        const std::string& pictureDescription, const std::function<void()>& then) {
  command->add_option("PICTURE", arguments.picture, pictureDescription)->type_name("");
  command->add_option("OUTPUT", arguments.output, "The sheet's file")->type_name("");
  command->add_flag("-y,--yes", arguments.overwrite, "Overwrite what exists");
  command->formatter(std::make_shared<OptionalPictureFormatter>());
  command->callback([&arguments, then] {
    // A single argument has become the first of the two.
    if (arguments.output.empty()) arguments.output.swap(arguments.picture);
    if (arguments.output.empty()) throw CLI::RequiredError("OUTPUT");
    then();
  });
}

}  // namespace kolm
