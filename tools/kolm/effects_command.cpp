// kolm effects: the table of effects.
#include <CLI/CLI.hpp>
#include <iomanip>
#include <iostream>
#include <string>

#include "tools/kolm/commands.h"
#include "tools/kolm/effect_names.h"

namespace kolm {
namespace {

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

}  // namespace

void AddEffectsCommand(CLI::App& app, Work& work) {
  app.add_subcommand("effects", "List the effects: id, name, parameter range, default")
      ->callback([&work] { work = PrintEffects; });
}

}  // namespace kolm
