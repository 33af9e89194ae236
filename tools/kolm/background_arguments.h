// Arguments that name a background.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kolm {

struct BackgroundArguments {
  std::string store, bitmap;
  uint32_t record = 1;
};

// Adds --store with --record, and --bitmap, of which at least `least` and at most one is to be
// given; `arguments` must live as long as `command`.
void AddBackgroundArguments(CLI::App* command, BackgroundArguments& arguments, size_t least);

// The record or bitmap as the module loads it. One must have been given. Throws Failure.
std::vector<uint8_t> LoadBackground(const BackgroundArguments& arguments);

}  // namespace kolm
