// kolm background: a record or a bitmap over a live picture.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/kolm/background_arguments.h"
#include "tools/kolm/background_record.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/pipeline.h"
#include "tools/kolm/progress.h"

namespace kolm {
namespace {

struct BackgroundOptions : MediaArguments, BackgroundArguments {};

void LayBackground(const BackgroundOptions& options) {
  if (options.quiet) SetQuiet();
  const std::vector<uint8_t> record = LoadBackground(options);
  ProcessMedia(options, [&](const MediaShape& shape) -> FrameWork {
    const auto width = static_cast<uint32_t>(shape.width);
    const auto height = static_cast<uint32_t>(shape.height);
    const auto results =
        std::make_shared<FramePool>(shape.width, shape.height, AV_PIX_FMT_YUYV422, 1);
    return [width, height, results,
            scaled = ScaleRecord(record, shape.width, shape.height)](FramePointer live) {
      // A decoder may still need its frame.
      FramePointer result = av_frame_is_writable(live.get()) ? nullptr : results->Get();
      const uint8_t* from = live->data[0];
      if (!result) result = std::move(live);
      Kolm_BG_AlphaBlending(width, height, scaled.data(), from, result->data[0]);
      return result;
    };
  });
}

}  // namespace

void AddBackgroundCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<BackgroundOptions>();
  CLI::App* command = app.add_subcommand(
      "background", "Replace the background of a picture or video by a record or a bitmap");
  AddBackgroundArguments(command, *options, 1);
  AddMediaArguments(command, *options);
  command->footer(
      std::string(kAboutMedia) +
      "\n\nThe module loads the background, scales it to the frames' size and blends the two by "
      "\nthe background's alpha plane.\n\nExamples:\n  kolm background --store KolmBg.img "
      "--record 2 portrait.jpg travelling.png\n  kolm background --bitmap frame.bmp talk.mp4 "
      "framed.mp4");
  command->callback([&work, options] { work = [options] { LayBackground(*options); }; });
}

}  // namespace kolm
