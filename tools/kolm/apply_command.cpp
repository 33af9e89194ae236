// kolm apply: effects, one upon the other.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/kolm/commands.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/pipeline.h"
#include "tools/kolm/split_frame.h"

namespace kolm {
namespace {

struct ApplyOptions : MediaArguments {
  std::vector<std::string> effects;
  bool split = false;
};

void Apply(const ApplyOptions& options) {
  const EffectList effects = ListEffects();
  std::vector<EffectUse> uses;
  for (const std::string& text : options.effects) uses.push_back(ParseEffectUse(effects, text));
  ProcessMedia(options, [&](const MediaShape& shape) -> FrameWork {
    const auto results =
        std::make_shared<FramePool>(shape.width, shape.height, AV_PIX_FMT_YUYV422, 1);
    return [&uses, split = options.split, results](FramePointer source) {
      FramePointer last;
      for (const EffectUse& use : uses) {
        const AVFrame& from = last ? *last : *source;
        FramePointer to = results->Get();
        Kolm_VE_RunVideoEffect(use.effect.routine, from.data[0], to->data[0],
                               static_cast<uint32_t>(to->width), static_cast<uint32_t>(to->height),
                               use.parameter);
        last = std::move(to);
      }
      if (split) KeepLeftHalf(*source, *last);
      return last;
    };
  });
  Kolm_VE_UninitVideoEffect();
}

}  // namespace

void AddApplyCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<ApplyOptions>();
  CLI::App* command = app.add_subcommand("apply", "Apply effects to a picture or video");
  command
      ->add_option("-e,--effect", options->effects,
                   "An effect by name or id, with a parameter or at its default; may be repeated: "
                   "effects are applied in the order given")
      ->required()
      ->allow_extra_args(false)
      ->type_name("NAME|ID[:PARAM]");
  command->add_flag("--split", options->split, "Leave the left half as it was");
  AddMediaArguments(command, *options);
  command->footer(std::string(kAboutMedia) +
                  "\n\nExamples:\n  kolm apply -e sepia portrait.jpg old.png\n  kolm apply -e "
                  "box-blur:4 -e 12 --split talk.mp4 drawn.mp4\n  kolm apply -e negative "
                  "frame-%04d.png negative-%04d.png\n  ffmpeg -i talk.mp4 -f yuv4mpegpipe - | kolm "
                  "apply -e 4 - - | ffplay -\n  kolm apply -e 7 -s 640x480 -r 30 frames.yuv "
                  "frames.mkv");
  command->callback([&work, options] { work = [options] { Apply(*options); }; });
}

}  // namespace kolm
