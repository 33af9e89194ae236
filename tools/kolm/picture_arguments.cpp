// An optional picture before an output.
#include "tools/kolm/picture_arguments.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <utility>

namespace kolm {
namespace {

// An optional argument before one that is needed.
class OptionalPictureFormatter : public CLI::Formatter {
 public:
  explicit OptionalPictureFormatter(std::string arguments) : arguments_(std::move(arguments)) {}

  std::string make_usage(const CLI::App*, std::string name) const override {
    return "Usage: " + name + " [OPTIONS] " + arguments_ + "\n";
  }

 private:
  std::string arguments_;
};

}  // namespace

const char* const kAboutPictures =
    "Pictures are read in any format that OpenCV knows (PNG, JPEG, BMP, TIFF, WebP, PNM, ...) and\n"
    "written in the format of OUTPUT's extension. Transparent parts are laid on white; of an odd\n"
    "width the last column is left out.";

void AddOptionalPicture(CLI::App* command, PictureArguments& arguments, const Argument& picture,
                        const Argument& output, const std::function<void()>& then) {
  command->add_option(picture.name, arguments.picture, picture.description)->type_name("");
  command->add_option(output.name, arguments.output, output.description)->type_name("");
  command->add_flag("-y,--yes", arguments.overwrite, "Overwrite what exists");
  command->formatter(
      std::make_shared<OptionalPictureFormatter>("[" + picture.name + "] " + output.name));
  command->callback([&arguments, outputName = output.name, then] {
    // A single argument has become the first of the two.
    if (arguments.output.empty()) arguments.output.swap(arguments.picture);
    if (arguments.output.empty()) throw CLI::RequiredError(outputName);
    then();
  });
}

}  // namespace kolm
