// Not available yet: no resources are made and no frame is written.
#include "facetrack/face_tracking.h"

namespace kolm {

void InitFaceTracking(uint32_t, uint32_t, void** storage, void** image) {
  *storage = nullptr;
  *image = nullptr;
}

void DoFaceTracking(FaceTracker*) {}

void UninitFaceTracking(void** storage, void** image) {
  *storage = nullptr;
  *image = nullptr;
}

}  // namespace kolm
