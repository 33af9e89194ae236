// Explains errors by the command and the option that they are about.
#include "tools/kolm/command_line.h"

#include <memory>
#include <string_view>
#include <vector>

namespace kolm {
namespace {

// The option that an error's text begins with, of the command's own or of the whole tool's.
const CLI::Option* OptionInQuestion(const CLI::App& command, const std::string& text) {
  const std::string name = text.substr(0, text.find_first_of(": "));
  for (const CLI::App* app = &command; app != nullptr; app = app->get_parent()) {
    if (const CLI::Option* option = app->get_option_no_throw(name)) return option;
  }
  return nullptr;
}

}  // namespace

std::string ExplainError(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App* command = &app;
  std::string name = app.get_name();
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().back();
    name += " " + command->get_name();
  }
  const std::string help = "'" + name + " --help'";
  const bool needsCommand = command->get_require_subcommand_min() > 0;
  // Every command has this kind; some know their usage better.
  const auto formatter = std::static_pointer_cast<CLI::Formatter>(command->get_formatter());
  const auto withUsage = [&](const std::string& text) {
    return text + "\n" + formatter->make_usage(command, name) + "See " + help + ".";
  };

  // What is not understood may be why something else is missing: it comes first.
  std::vector<std::string> extras = app.remaining(true);
  std::erase(extras, "--");  // has its meaning, but is left over all the same
  if (!extras.empty()) {
    const std::string extra = "'" + extras.front() + "' is ";
    if (extras.front().size() > 1 && extras.front()[0] == '-') {
      return extra + "no option of '" + name + "'; " + help + " lists its options";
    }
    if (needsCommand) return extra + "no command; " + help + " lists the commands";
    return withUsage(extra + "one argument too many");
  }
  if (needsCommand && error.get_name() == "RequiredError") {
    return "a command is missing; " + help + " lists the commands";
  }

  std::string text = error.what();
  if (error.get_name() == "ValidationError") return text + "; see " + help;
  constexpr std::string_view kNotConverted = "Could not convert: ";
  const bool isConversion = text.starts_with(kNotConverted);
  if (isConversion) text.erase(0, kNotConverted.size());
  const CLI::Option* option = OptionInQuestion(*command, text);
  if (option == nullptr) return withUsage(text);
  if (isConversion) {
    text = option->get_name() + ": '" + CLI::detail::join(option->results()) + "' cannot be used";
  } else if (error.get_name() == "ArgumentMismatch") {
    text = option->get_name() +
           (text.ends_with(" missing") ? " lacks its value" : " is given more than once");
  }
  return text + "\nExpected:\n" + formatter->make_option(option, option->get_positional()) +
         "See " + help + ".";
}

}  // namespace kolm
