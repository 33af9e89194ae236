// The trackers' resources, the detector they share, and the detector library's lifetime around
// them.
#include "facetrack/face_tracking.h"

#include <atomic>

#include "facetrack/face_cascade.h"
#include "facetrack/track_face.h"
#include "imaging/crop_scale_yuv16.h"
#include "module/memory.h"
#include "platform/detector_runtime.h"

namespace kolm {
namespace {

constexpr char kCascadeName[] = "<default_face_cascade>";
constexpr int32_t kCascadeSide = 24;

FaceDetector* sharedFaceDetector = nullptr;
constinit std::atomic<int32_t> trackerCount = 0;

// Storages, images and detectors now alive. The detector's library must outlive the last of them,
// also where a client's Init and Uninit do not balance.
int32_t libraryObjects = 0;

template <typename Object>
Object* Keep(Object* object) {
  if (object != nullptr) ++libraryObjects;
  return object;
}

// After an object is released.
void Drop() {
  --libraryObjects;
  if (libraryObjects == 0) EndDetectorRuntime();
}

FaceDetector* BuildFaceDetector() {
  FaceCascade* cascade = LoadFaceCascade(kCascadeName, kCascadeSide, kCascadeSide);
  if (cascade == nullptr) return nullptr;
  FaceDetector* detector = CreateFaceDetector(*cascade);
  ReleaseFaceCascade(cascade);
  return detector;
}

}  // namespace

void InitFaceTracking(uint32_t width, uint32_t height, void** storage, void** image) {
  *storage = nullptr;
  *image = nullptr;
  if (libraryObjects > 0 || BeginDetectorRuntime()) {
    if (sharedFaceDetector == nullptr) sharedFaceDetector = Keep(BuildFaceDetector());
    *storage = Keep(CreateFaceStorage());
    *image = Keep(CreateDetectionImage(width, height));
    // A frame's picture fills only a part of it.
    if (*image != nullptr) KolmZero(DetectionImageData(*image), DetectionImageBytes(*image));
    if (libraryObjects == 0) EndDetectorRuntime();
  }
  ++trackerCount;
}

void DoFaceTracking(FaceTracker* tracker) {
  if (DetectionPictureFits(*tracker)) {
    const auto width = static_cast<int32_t>(tracker->frameWidth);
    const auto height = static_cast<int32_t>(tracker->frameHeight);
    CropScaleYUV16Inside(tracker->srcFrame, width, height,
                         DetectionImageData(tracker->detectionImage), tracker->detectWidth,
                         tracker->detectHeight, 0, 0, width, height);
  }
  TrackFace(tracker, sharedFaceDetector);
}

void UninitFaceTracking(void** storage, void** image) {
  --trackerCount;
  if (*storage != nullptr) {
    ReleaseFaceStorage(storage);
    Drop();
  }
  if (*image != nullptr) {
    ReleaseDetectionImage(image);
    Drop();
  }
  if (trackerCount == 0 && sharedFaceDetector != nullptr) {
    ReleaseFaceDetector(&sharedFaceDetector);
    Drop();
  }
}

}  // namespace kolm
