// The tool's commands. Each Add...Command gives `app` one subcommand; when the command line names
// it, `work` becomes what is to be done, which may throw Failure.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace kolm {

using Work = std::function<void()>;

void AddApplyCommand(CLI::App& app, Work& work);
void AddBackgroundCommand(CLI::App& app, Work& work);
void AddBackgroundSheetCommand(CLI::App& app, Work& work);
void AddBenchCommand(CLI::App& app, Work& work);
void AddEffectsCommand(CLI::App& app, Work& work);
void AddGalleryCommand(CLI::App& app, Work& work);
void AddSheetCommand(CLI::App& app, Work& work);
void AddStoreCommand(CLI::App& app, Work& work);
void AddTrackCommand(CLI::App& app, Work& work);
void AddTrackSheetCommand(CLI::App& app, Work& work);
void AddViewCommand(CLI::App& app, Work& work);

}  // namespace kolm
