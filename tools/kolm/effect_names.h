// The effects as the tool's user sees them: names from a table, all else from the module's exports.
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "module/kolm.h"

namespace kolm {

struct Effect {
  uint32_t id;
  std::string title;  // "Box blur"
  std::string name;   // "box-blur", as on the command line
  uint32_t minimum, maximum, defaultValue;
  EffectRoutine routine;

  bool HasParameter() const { return maximum > minimum; }
};

using EffectList = std::array<Effect, KOLM_EFFECT_LAST>;

// All effects by id, from 1.
EffectList ListEffects();

struct EffectUse {
  Effect effect;
  uint32_t parameter;
};

// Understands "5", "box-blur", "Box blur" and, with a parameter, "box-blur:3". Throws Failure.
EffectUse ParseEffectUse(const EffectList& effects, const std::string& text);

// The picture (8-bit BGR, of even width) with the effects, one upon the other.
cv::Mat ApplyEffects(const cv::Mat& picture, const std::vector<EffectUse>& uses);

}  // namespace kolm
