// The table of the 18 effects and the lookups over it.
#pragma once

#include "module/kolm.h"

namespace kolm {

struct EffectEntry {
  uint32_t id;            // 1 to 18
  uint32_t hasParameter;  // 1 if the effect takes a parameter; informational
  uint32_t minimum;       // smallest parameter offered
  uint32_t maximum;       // largest parameter offered
  uint32_t defaultValue;  // parameter suggested
  uint32_t reserved;      // 0
  EffectRoutine routine;
};

extern const EffectEntry EffectTable[];
extern const int32_t EffectTableCount;

// The routine of the first row with this id, or null.
EffectRoutine FindEffectRoutine(uint32_t id);

// Stores the range of the last row with this id; leaves both outputs alone if there is none.
void FindParameterRange(uint32_t id, uint32_t* minimum, uint32_t* maximum);

// Stores the default of the last row with this id; 0 if there is none.
void FindParameterDefault(uint32_t id, uint32_t* defaultValue);

}  // namespace kolm
