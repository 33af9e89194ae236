// The face detector and its containers, behind which OpenCV works. Nothing here throws: what cannot
// be made is null, what cannot be detected is no face.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "facetrack/face_cascade.h"

namespace kolm {

struct FaceDetector;
struct FaceSequence;

// Pixels of the detection image.
struct FaceRectangle {
  int32_t x, y, width, height;
};

FaceDetector* CreateFaceDetector(const FaceCascade& cascade);

// Sets *detector to null, then frees it; null is fine.
void ReleaseFaceDetector(FaceDetector** detector);

// Memory for the results of a detection.
void* CreateFaceStorage();
void ClearFaceStorage(void* storage);
void ReleaseFaceStorage(void** storage);

// An image of 3 bytes a pixel, its region of interest the whole.
void* CreateDetectionImage(uint32_t width, uint32_t height);
void ReleaseDetectionImage(void** image);

// The image's bytes, of which there are DetectionImageBytes; null and 0 for a null image.
uint8_t* DetectionImageData(void* image);
size_t DetectionImageBytes(void* image);

// Looks for faces on the luma of the packed 4:2:2 picture written to the image. The result lives in
// `storage` until that is cleared; null is no face.
const FaceSequence* DetectFaces(void* image, FaceDetector* detector, void* storage,
                                uint32_t scaleFactorMilli);

// 0 for null.
int32_t CountFaces(const FaceSequence* faces);
FaceRectangle GetFace(const FaceSequence* faces, int32_t index);

}  // namespace kolm
