// The built-in sample picture: a room with a window, a woman, a cat and a chequered cloth. It has
// what the effects show themselves on: a face, edges, soft gradients, saturated colours, texture.
#pragma once

#include <opencv2/core.hpp>

namespace kolm {

// 640 x 480 pixels, 8-bit BGR; the same at each call.
cv::Mat DrawSampleScene();

// 640 x 480 pixels, BGR, 0 to 1: laid over a picture it gives colour + through * picture.
struct SceneLayer {
  cv::Mat3f colour, through;
};

// From the back to the front, without the cat, which would hide her face.
struct SampleLayers {
  SceneLayer room, woman, things, light;
};
SampleLayers DrawSampleLayers();

// The alpha plane of a background that covers the sample scene's room and leaves the woman, the cat
// and the table: 640 x 480 pixels, 8-bit, 255 where the room is.
cv::Mat DrawSampleRoomCover();

// The same for a picture of which nothing is known: leaves a head and shoulders in the middle.
cv::Mat DrawPortraitCover();

}  // namespace kolm
