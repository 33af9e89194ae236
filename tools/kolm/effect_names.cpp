// Effect names, the reading of -e and the call of an effect.
#include "tools/kolm/effect_names.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "tools/kolm/failure.h"
#include "tools/kolm/packed_yuv.h"

namespace kolm {
namespace {

constexpr const char* kTitles[KOLM_EFFECT_LAST] = {
    "Zoom in",        "Zoom out",         "Grayscale",          "Sepia",
    "Box blur",       "Pixelate",         "Emboss grey",        "Emboss colour",
    "Picture grid",   "Edge relief grey", "Edge relief colour", "Sketch",
    "Negative",       "Posterize",        "Horizontal bulge",   "Horizontal pinch",
    "Vertical bulge", "Vertical pinch",
};

std::string CommandName(std::string title) {
  std::transform(title.begin(), title.end(), title.begin(), [](unsigned char c) {
    return c == ' ' || c == '_' ? '-' : static_cast<char>(std::tolower(c));
  });
  return title;
}

std::optional<uint32_t> WholeNumber(const std::string& text) {
  uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace

EffectList ListEffects() {
  EffectList effects;
  for (uint32_t id = KOLM_EFFECT_FIRST; id <= KOLM_EFFECT_LAST; ++id) {
    Effect& effect = effects[id - KOLM_EFFECT_FIRST];
    effect.id = id;
    effect.title = kTitles[id - KOLM_EFFECT_FIRST];
    effect.name = CommandName(effect.title);
    Kolm_VE_InitVideoEffect(id, &effect.routine);
    Kolm_VE_GetParameterRange(id, &effect.minimum, &effect.maximum);
    Kolm_VE_GetParameterDefault(id, &effect.defaultValue);
  }
  return effects;
}

EffectUse ParseEffectUse(const EffectList& effects, const std::string& text) {
  const size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  const std::optional<uint32_t> id = WholeNumber(name);
  const auto effect = std::find_if(effects.begin(), effects.end(), [&](const Effect& candidate) {
    return id ? candidate.id == *id : candidate.name == CommandName(name);
  });
  if (effect == effects.end()) {
    throw Failure(ExitCode::UnknownEffect,
                  "there is no effect '" + name + "'; expected an id from 1 to " +
                      std::to_string(KOLM_EFFECT_LAST) + " or a name that 'kolm effects' lists");
  }
  if (colon == std::string::npos) return {*effect, effect->defaultValue};

  const std::string given = text.substr(colon + 1);
  const std::optional<uint32_t> parameter = WholeNumber(given);
  if (!parameter || *parameter < effect->minimum || *parameter > effect->maximum) {
    const std::string expected =
        effect->HasParameter() ? "expected a whole number from " + std::to_string(effect->minimum) +
                                     " to " + std::to_string(effect->maximum)
                               : "the effect takes none";
    throw Failure(ExitCode::ParameterRange, "parameter '" + given + "' of effect '" + effect->name +
                                                "' is out of range; " + expected);
  }
  return {*effect, *parameter};
}

cv::Mat ApplyEffects(const cv::Mat& picture, const std::vector<EffectUse>& uses) {
  const auto width = static_cast<uint32_t>(picture.cols);
  const auto height = static_cast<uint32_t>(picture.rows);
  std::vector<uint8_t> source = PackedFromPicture(picture);
  std::vector<uint8_t> destination(source.size());
  for (const EffectUse& use : uses) {
    Kolm_VE_RunVideoEffect(use.effect.routine, source.data(), destination.data(), width, height,
                           use.parameter);
    source.swap(destination);
  }
  return PictureFromPacked(source, picture.size());
}

}  // namespace kolm
