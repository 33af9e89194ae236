// Arguments that several commands for pictures share.
#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace kolm {

// For the text of --help.
extern const char* const kAboutPictures;

struct PictureArguments {
  std::string picture, output;
  bool overwrite = false;
};

struct Argument {
  std::string name, description;
};

// Adds [picture] output and -y; `arguments` must live as long as `command`. `then` is called when
// the command line names the command.
void AddOptionalPicture(CLI::App* command, PictureArguments& arguments, const Argument& picture,
                        const Argument& output, const std::function<void()>& then);

}  // namespace kolm
