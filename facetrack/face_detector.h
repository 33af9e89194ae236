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

// Null for a cascade whose features lead out of the window, whose links lead out of their tree or
// to a node that does not stand behind their own, with numbers that are not finite, with a stage
// without trees or a tree without nodes, or with a window below 3 or above 400 pixels. The cascade
// is not needed afterwards.
FaceDetector* CreateFaceDetector(const FaceCascade& cascade);

// Sets *detector to null, then frees it; null is fine.
void ReleaseFaceDetector(FaceDetector** detector);

// Memory for the results of a detection.
void* CreateFaceStorage();
void ClearFaceStorage(void* storage);
void ReleaseFaceStorage(void** storage);

// An image of 3 bytes a pixel, its region of interest the whole; not cleared. Null for a size of 0,
// or if `height` rows of width * 3 + 3 bytes are more than 2147483647 bytes.
void* CreateDetectionImage(uint32_t width, uint32_t height);
void ReleaseDetectionImage(void** image);

// The image's bytes, of which there are DetectionImageBytes; null and 0 for a null image.
uint8_t* DetectionImageData(void* image);
size_t DetectionImageBytes(void* image);

// Looks for faces on the luma of the packed 4:2:2 picture written to the image. Its pixels follow
// one another, while the detector's rows are padded to 4 bytes: a width that is no multiple of 4
// skews what it sees. The result lives in `storage` until that is cleared; null is no face, as for
// a factor of 1000 and less or one that is too close to it for a large image.
const FaceSequence* DetectFaces(void* image, FaceDetector* detector, void* storage,
                                uint32_t scaleFactorMilli);

// 0 for null.
int32_t CountFaces(const FaceSequence* faces);

// `index` is from 0 to CountFaces - 1.
FaceRectangle GetFace(const FaceSequence* faces, int32_t index);

}  // namespace kolm
