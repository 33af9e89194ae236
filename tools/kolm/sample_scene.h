// The built-in sample picture: a room with a window, a woman, a cat and a chequered cloth. It has
// what the effects show themselves on: a face, edges, soft gradients, saturated colours, texture.
#pragma once

#include <opencv2/core.hpp>

namespace kolm {

// 640 x 480 pixels, 8-bit BGR; the same at each call.
cv::Mat DrawSampleScene();

}  // namespace kolm
