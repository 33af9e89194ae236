// Effects that keep pixels in their place. They are called as the export calls them, without its
// debugger line.
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

#include "bench/bench_frames.h"
#include "bench/pairs.h"
#include "effects/box_blur_effect.h"
#include "effects/neighbourhood_effects.h"
#include "effects/tone_effects.h"
#include "module/kolm.h"

namespace kolm::bench {
namespace {

cv::Mat Plane(const uint8_t* samples, int width, int height) {
  return cv::Mat(height, width, CV_8UC1, const_cast<uint8_t*>(samples));
}

Work Run(EffectRoutine routine, Size size, uint32_t parameter) {
  return [=](const Frames& frames) {
    routine(frames.packed, frames.destination, size.width, size.height, parameter);
  };
}

Work Copy(Size size) {
  return [=](const Frames& frames) {
    std::memcpy(frames.destination, frames.packed, FrameBytes(size));
  };
}

// A table of 256 bytes for each byte of the frame.
Work LookUp(Size size) {
  cv::Mat table(1, 256, CV_8UC1);
  for (int value = 0; value < 256; ++value) {
    table.at<uint8_t>(value) = static_cast<uint8_t>(value / 32 * 36);
  }
  return [=](const Frames& frames) {
    cv::Mat destination = Plane(frames.destination, 2 * size.width, size.height);
    cv::LUT(Plane(frames.packed, 2 * size.width, size.height), table, destination);
  };
}

// The gradients that Sketch takes the largest of. 8-bit results suffice: below 0 and above 255 they
// are cut off anyway.
Work FilterLuma(Size size) {
  const cv::Mat kernels[] = {
      (cv::Mat_<float>(3, 3) << 1, 2, 1, 0, 0, 0, -1, -2, -1),
      (cv::Mat_<float>(3, 3) << -1, -2, -1, 0, 0, 0, 1, 2, 1),
      (cv::Mat_<float>(3, 3) << 1, 0, -1, 2, 0, -2, 1, 0, -1),
      (cv::Mat_<float>(3, 3) << 2, 1, 0, 1, 0, -1, 0, -1, -2),
      (cv::Mat_<float>(3, 3) << 0, -1, -2, 1, 0, -1, 2, 1, 0),
  };
  return [=, gradient = cv::Mat()](const Frames& frames) mutable {
    const cv::Mat luma = Plane(frames.planes.y, size.width, size.height);
    cv::Mat largest = Plane(frames.destination, size.width, size.height);
    cv::filter2D(luma, largest, CV_8U, kernels[0]);
    for (int i = 1; i < 5; ++i) {
      cv::filter2D(luma, gradient, CV_8U, kernels[i]);
      cv::max(largest, gradient, largest);
    }
  };
}

// The window has as many samples on the half-width chroma planes as on the luma plane.
Work BlurPlanes(Size size, int radius) {
  return [=](const Frames& frames) {
    const cv::Size window(2 * radius + 1, 2 * radius + 1);
    const Planes<uint8_t> blurred = PlanesAt(frames.destination, size);
    const auto blur = [&](const uint8_t* from, uint8_t* to, int width) {
      cv::Mat destination = Plane(to, width, size.height);
      cv::blur(Plane(from, width, size.height), destination, window);
    };
    blur(frames.planes.y, blurred.y, size.width);
    blur(frames.planes.u, blurred.u, size.width / 2);
    blur(frames.planes.v, blurred.v, size.width / 2);
  };
}

}  // namespace

void RegisterEffectPairs() {
  for (const Size size : kSizes) {
    const auto pair = [&](const std::string& row, const std::string& work, EffectRoutine routine,
                          uint32_t parameter, const Work& peer) {
      RegisterPair(row, work, Name(size), size, Run(routine, size, parameter), peer);
    };
    pair("tone", "Grayscale", Grayscale, 0, Copy(size));
    pair("tone", "Sepia", Sepia, 0, Copy(size));
    pair("tone", "Negative", Negative, 0, Copy(size));
    pair("posterize", "Posterize:4", Posterize, 4, LookUp(size));
    pair("posterize", "Posterize:1", Posterize, 1, LookUp(size));
    pair("relief", "EmbossGrey", EmbossGrey, 0, Copy(size));
    pair("relief", "EmbossColour", EmbossColour, 0, Copy(size));
    pair("relief", "EdgeReliefGrey", EdgeReliefGrey, 0, Copy(size));
    pair("relief", "EdgeReliefColour", EdgeReliefColour, 0, Copy(size));
    pair("sketch", "Sketch", Sketch, 0, FilterLuma(size));
    pair("pixelate", "Pixelate:3", Pixelate, 3, Copy(size));
    pair("pixelate", "Pixelate:1", Pixelate, 1, Copy(size));
    for (int radius = 1; radius <= 8; ++radius) {
      pair("blur", "BoxBlur:" + std::to_string(radius), BoxBlur, radius, BlurPlanes(size, radius));
    }
  }
}

}  // namespace kolm::bench
