// kolm apply: effects, one upon the other.
#include <CLI/CLI.hpp>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/kolm/commands.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/picture_arguments.h"
#include "tools/kolm/picture_file.h"

namespace kolm {
namespace {

struct ApplyOptions {
  std::vector<std::string> effects;
  std::string input, output;
  bool overwrite = false;
};

void ApplyToPicture(const ApplyOptions& options) {
  const EffectList effects = ListEffects();
  std::vector<EffectUse> uses;
  for (const std::string& text : options.effects) uses.push_back(ParseEffectUse(effects, text));
  CheckOutput(options.output, options.overwrite);
  const cv::Mat picture = ReadPicture(options.input);
  WritePicture(ApplyEffects(picture, uses), options.output, options.overwrite);
  Kolm_VE_UninitVideoEffect();
}

}  // namespace

void AddApplyCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<ApplyOptions>();
  CLI::App* command = app.add_subcommand("apply", "Apply effects to a picture");
  command
      ->add_option("-e,--effect", options->effects,
                   "An effect by name or id, with a parameter or at its default; may be repeated: "
                   "effects are applied in the order given")
      ->required()
      ->allow_extra_args(false)
      ->type_name("NAME|ID[:PARAM]");
  command->add_option("INPUT", options->input, "The picture")->required()->type_name("");
  command->add_option("OUTPUT", options->output, "The resulting picture's file")
      ->required()
      ->type_name("");
  command->add_flag("-y,--yes", options->overwrite, "Overwrite OUTPUT if it exists");
  command->footer(std::string(kAboutPictures) +
                  "\n\nExamples:\n  kolm apply -e sepia portrait.jpg old.png\n  kolm apply -e "
                  "box-blur:4 -e 12 portrait.jpg drawing.png");
  command->callback([&work, options] { work = [options] { ApplyToPicture(*options); }; });
}

}  // namespace kolm
