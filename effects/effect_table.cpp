// The constant effect table.
#include "effects/effect_table.h"

#include "effects/box_blur_effect.h"
#include "effects/geometry_effects.h"
#include "effects/neighbourhood_effects.h"
#include "effects/tone_effects.h"

namespace kolm {

// Row 3 declares a parameter whose range is 0 to 0; row 9 alone starts at 1.
const EffectEntry EffectTable[] = {
    {1, 1, 0, 10, 2, 0, ZoomIn},           {2, 1, 0, 10, 2, 0, ZoomOut},
    {3, 1, 0, 0, 0, 0, Grayscale},         {4, 0, 0, 0, 0, 0, Sepia},
    {5, 1, 0, 8, 2, 0, BoxBlur},           {6, 1, 0, 8, 3, 0, Pixelate},
    {7, 0, 0, 0, 0, 0, EmbossGrey},        {8, 0, 0, 0, 0, 0, EmbossColour},
    {9, 1, 1, 8, 3, 0, PictureGrid},       {10, 0, 0, 0, 0, 0, EdgeReliefGrey},
    {11, 0, 0, 0, 0, 0, EdgeReliefColour}, {12, 0, 0, 0, 0, 0, Sketch},
    {13, 0, 0, 0, 0, 0, Negative},         {14, 1, 0, 10, 4, 0, Posterize},
    {15, 0, 0, 0, 0, 0, HorizontalBulge},  {16, 0, 0, 0, 0, 0, HorizontalPinch},
    {17, 0, 0, 0, 0, 0, VerticalBulge},    {18, 0, 0, 0, 0, 0, VerticalPinch},
};

const int32_t EffectTableCount = sizeof EffectTable / sizeof EffectTable[0];

EffectRoutine FindEffectRoutine(uint32_t id) {
  for (int32_t row = 0; row < EffectTableCount; ++row) {
    if (EffectTable[row].id == id) return EffectTable[row].routine;
  }
  return nullptr;
}

void FindParameterRange(uint32_t id, uint32_t* minimum, uint32_t* maximum) {
  for (int32_t row = 0; row < EffectTableCount; ++row) {
    if (EffectTable[row].id != id) continue;
    *minimum = EffectTable[row].minimum;
    *maximum = EffectTable[row].maximum;
  }
}

void FindParameterDefault(uint32_t id, uint32_t* defaultValue) {
  *defaultValue = 0;
  for (int32_t row = 0; row < EffectTableCount; ++row) {
    if (EffectTable[row].id == id) *defaultValue = EffectTable[row].defaultValue;
  }
}

}  // namespace kolm
