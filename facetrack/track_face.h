// One frame's step of the tracker: from the faces found to the part of the frame that is shown.
#pragma once

#include "facetrack/face_detector.h"
#include "module/kolm.h"

namespace kolm {

// Looks for faces on the tracker's detection image, follows them and writes dstFrame. Nothing is
// written if `detector` or the image is null.
void TrackFace(FaceTracker* tracker, FaceDetector* detector);

// Whether the record's detection picture, in whole pixel pairs, has room in its detection image.
bool DetectionPictureFits(const FaceTracker& tracker);

// Pixels of the frame.
struct FaceBox {
  int32_t left, top, width, height;
};

FaceBox NoFace(const FaceTracker& tracker);

// Joins a face, in pixels of the detection picture, to the box of the faces before it.
void MergeFace(const FaceTracker& tracker, const FaceRectangle& face, FaceBox* box);

// Moves the crop towards the box, or on without a face, and writes dstFrame.
void FollowBox(FaceTracker* tracker, FaceBox box);

}  // namespace kolm
