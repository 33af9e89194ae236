// Face tracking behind its exports. The contracts stand in module/kolm.h.
#pragma once

#include "module/kolm.h"

namespace kolm {

void InitFaceTracking(uint32_t width, uint32_t height, void** storage, void** image);
void DoFaceTracking(FaceTracker* tracker);
void UninitFaceTracking(void** storage, void** image);

}  // namespace kolm
