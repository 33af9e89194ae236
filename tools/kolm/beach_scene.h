// The built-in background: a beach in the evening, lit from the left as the sample scene is.
#pragma once

#include <opencv2/core.hpp>

namespace kolm {

// 640 x 480 pixels, 8-bit BGR; the same at each call.
cv::Mat DrawBeachScene();

}  // namespace kolm
