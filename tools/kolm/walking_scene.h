// The built-in moving scene: the sample scene's woman crosses her room, leaves it and comes back.
#pragma once

#include <opencv2/core.hpp>

#include "tools/kolm/sample_scene.h"

namespace kolm {

class WalkingScene {
 public:
  static constexpr int kFrames = 240;
  static constexpr int kRate = 25;  // frames a second

  WalkingScene();

  // 640 x 480 pixels, 8-bit BGR; the same at each call.
  cv::Mat Frame(int index) const;

 private:
  SampleLayers layers_;
};

}  // namespace kolm
