// The tracker's arithmetic is that of 32-bit registers: what does not fit wraps. The record is the
// caller's, so every value in it is possible.
#include "facetrack/track_face.h"

#include "imaging/crop_scale_yuv16.h"
#include "module/memory.h"
#include "platform/kernel_calls.h"

namespace kolm {
namespace {

// Pixels of the detection picture added on each side of a face.
constexpr int32_t kMargin = 20;

int32_t Wrap(int64_t value) { return static_cast<int32_t>(value); }

// Truncates. Where a processor would trap, the result is 0 or wraps.
int32_t Divide(int32_t dividend, int32_t divisor) {
  return divisor == 0 ? 0 : Wrap(int64_t{dividend} / divisor);
}

int32_t MultiplyDivide(int32_t value, int32_t factor, int32_t divisor) {
  return Divide(Wrap(int64_t{value} * factor), divisor);
}

int32_t FrameWidth(const FaceTracker& tracker) { return static_cast<int32_t>(tracker.frameWidth); }
int32_t FrameHeight(const FaceTracker& tracker) {
  return static_cast<int32_t>(tracker.frameHeight);
}

void ShowCrop(const FaceTracker& tracker) {
  const int32_t width = FrameWidth(tracker), height = FrameHeight(tracker);
  CropScaleYUV16Inside(tracker.srcFrame, width, height, tracker.dstFrame, width, height,
                       tracker.cropX, tracker.cropY, tracker.cropWidth, tracker.cropHeight);
}

void ShowTarget(FaceTracker* tracker) {
  tracker->cropX = tracker->targetX;
  tracker->cropY = tracker->targetY;
  tracker->cropWidth = tracker->targetWidth;
  tracker->cropHeight = tracker->targetHeight;
  ShowCrop(*tracker);
}

void ShowWholeFrame(const FaceTracker& tracker) {
  if (FrameWidth(tracker) <= 0 || FrameHeight(tracker) <= 0) return;
  KolmCopy(tracker.dstFrame, tracker.srcFrame,
           size_t{tracker.frameWidth} * tracker.frameHeight * 2);
}

// One `steps`-th of the way.
int32_t Approach(int32_t from, int32_t to, int32_t steps) {
  return Wrap(int64_t{from} + Divide(Wrap(int64_t{to} - from), steps));
}

void ApproachTarget(FaceTracker* tracker, int32_t steps) {
  tracker->cropX = Approach(tracker->cropX, tracker->targetX, steps);
  tracker->cropY = Approach(tracker->cropY, tracker->targetY, steps);
  tracker->cropWidth = Approach(tracker->cropWidth, tracker->targetWidth, steps);
  tracker->cropHeight = Approach(tracker->cropHeight, tracker->targetHeight, steps);
}

// Keeps one side of the crop within the frame's. A side as long as the frame's starts at -1.
void ClampSide(int32_t* start, int32_t* length, int32_t frameLength) {
  if (*length > frameLength) *length = frameLength;
  if (*length < 0) *length = 0;
  if (*start < 0) *start = 0;
  if (Wrap(int64_t{*length} + *start) >= frameLength) {
    *start = Wrap(int64_t{frameLength} - *length - 1);
  }
}

bool IsMoving(const FaceTracker& tracker) {
  return tracker.stepIndex < static_cast<uint32_t>(tracker.stepCount) - 1;
}

void TakeStep(FaceTracker* tracker) {
  ApproachTarget(tracker, Wrap(int64_t{tracker->stepCount} - tracker->stepIndex));
  ClampSide(&tracker->cropX, &tracker->cropWidth, FrameWidth(*tracker));
  ClampSide(&tracker->cropY, &tracker->cropHeight, FrameHeight(*tracker));
  ShowCrop(*tracker);
  ++tracker->stepIndex;
}

// Moves a side that has grown back into the frame.
int32_t FitStart(int32_t start, int32_t length, int32_t frameLength) {
  if (Wrap(int64_t{length} + start) >= frameLength) start = Wrap(int64_t{frameLength} - length - 1);
  return start < 0 ? 0 : start;
}

// Grows one side so that the box has the frame's aspect ratio.
void FitBox(const FaceTracker& tracker, FaceBox* box) {
  const int32_t width = FrameWidth(tracker), height = FrameHeight(tracker);
  if (Wrap(int64_t{width} * box->height) > Wrap(int64_t{height} * box->width)) {
    box->width = MultiplyDivide(width, box->height, height);
    box->left = FitStart(box->left, box->width, width);
  } else {
    box->height = MultiplyDivide(height, box->width, width);
    box->top = FitStart(box->top, box->height, height);
  }
}

void BeginMove(FaceTracker* tracker, FaceBox box) {
  FitBox(*tracker, &box);
  DbgPrint("YUV16_Face x, y, w, h........... %d, %d, %d, %d\n", box.left, box.top, box.width,
           box.height);
  tracker->targetX = box.left;
  tracker->targetY = box.top;
  tracker->targetWidth = box.width;
  tracker->targetHeight = box.height;
  ApproachTarget(tracker, tracker->stepCount);
  ShowCrop(*tracker);
  tracker->stepIndex = 1;
}

void FollowFace(FaceTracker* tracker, const FaceBox& box) {
  tracker->missCount = 0;
  // The target has been fitted and the box has not: a face that keeps still begins a new move with
  // every frame, unless its box has the frame's aspect ratio by itself.
  const bool isTarget = box.left == tracker->targetX && box.top == tracker->targetY &&
                        box.width == tracker->targetWidth && box.height == tracker->targetHeight;
  if (!isTarget) {
    BeginMove(tracker, box);
  } else if (IsMoving(*tracker)) {
    TakeStep(tracker);
  } else {
    ShowTarget(tracker);
  }
}

void FollowNoFace(FaceTracker* tracker, const FaceBox& box) {
  const int32_t width = FrameWidth(*tracker), height = FrameHeight(*tracker);
  if (IsMoving(*tracker)) {
    TakeStep(tracker);
    return;
  }
  if ((box.width < 1 || box.height < 1) && tracker->targetWidth == width &&
      tracker->targetHeight == height) {
    ShowWholeFrame(*tracker);
    return;
  }
  ShowTarget(tracker);
  if (tracker->resetWhenLost == 0) return;
  ++tracker->missCount;
  if (tracker->missCount <= static_cast<uint32_t>(tracker->stepCount)) return;
  tracker->stepIndex = 0;
  tracker->missCount = 0;
  tracker->targetX = 0;
  tracker->targetY = 0;
  tracker->targetWidth = width;
  tracker->targetHeight = height;
}

// Start and length of one side of a face, with its margins, in frame pixels.
void FaceSide(int32_t start, int32_t length, int32_t detectLength, int32_t frameLength,
              int32_t* frameStart, int32_t* frameSpan) {
  const int32_t perMille = MultiplyDivide(frameLength, 1000, detectLength);
  int32_t from = Wrap(int64_t{start} - kMargin);
  if (from < 0) from = 0;
  int32_t span = Wrap(int64_t{start} + length + kMargin - from);
  if (Wrap(int64_t{from} + span) > Wrap(int64_t{detectLength} - 1)) {
    span = Wrap(int64_t{detectLength} - from);
  }
  *frameStart = MultiplyDivide(from, perMille, 1000);
  *frameSpan = MultiplyDivide(span, perMille, 1000);
}

}  // namespace

bool DetectionPictureFits(const FaceTracker& tracker) {
  if (tracker.detectWidth <= 0 || tracker.detectHeight <= 0) return false;
  const uint64_t pairs = (uint64_t{static_cast<uint32_t>(tracker.detectWidth)} + 1) / 2;
  return pairs * 4 * static_cast<uint32_t>(tracker.detectHeight) <=
         DetectionImageBytes(tracker.detectionImage);
}

FaceBox NoFace(const FaceTracker& tracker) {
  return {FrameWidth(tracker), FrameHeight(tracker), 0, 0};
}

void MergeFace(const FaceTracker& tracker, const FaceRectangle& face, FaceBox* box) {
  int32_t x, y, width, height;
  FaceSide(face.x, face.width, tracker.detectWidth, FrameWidth(tracker), &x, &width);
  FaceSide(face.y, face.height, tracker.detectHeight, FrameHeight(tracker), &y, &height);
  if (x < box->left) box->left = x;
  if (y < box->top) box->top = y;
  // Not the union: the width falls back to this face's where the box already reaches as far, and
  // the height always ends with this face.
  const int32_t right = Wrap(int64_t{x} + width);
  box->width =
      Wrap(int64_t{box->width} + box->left) < right ? Wrap(int64_t{right} - box->left) : width;
  box->height = box->top < y ? Wrap(int64_t{y} + height - box->top) : height;
}

void FollowBox(FaceTracker* tracker, FaceBox box) {
  DbgPrint("YUV16_Face 1........... %d, %d, %d, %d\n", box.left, box.top, box.width, box.height);
  const bool found = box.width < FrameWidth(*tracker) && box.height < FrameHeight(*tracker) &&
                     box.width >= 1 && box.height >= 1;
  if (found) {
    FollowFace(tracker, box);
  } else {
    FollowNoFace(tracker, box);
  }
}

void TrackFace(FaceTracker* tracker, FaceDetector* detector) {
  ClearFaceStorage(tracker->faceStorage);
  if (detector == nullptr || tracker->detectionImage == nullptr) return;
  const FaceSequence* faces = nullptr;
  if (DetectionPictureFits(*tracker)) {
    faces = DetectFaces(tracker->detectionImage, detector, tracker->faceStorage,
                        tracker->scaleFactorMilli);
  }
  FaceBox box = NoFace(*tracker);
  for (int32_t i = 0; i < CountFaces(faces); ++i) MergeFace(*tracker, GetFace(faces, i), &box);
  FollowBox(tracker, box);
}

}  // namespace kolm
