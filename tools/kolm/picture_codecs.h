// OpenCV's picture codecs, in a module of their own: with them come a hundred libraries, which a
// tool that meets no picture starts without.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace kolm {

// OpenCV's functions of like names, with its own flags. They throw cv::Exception.
struct PictureCodecs {
  cv::Mat (*decode)(const std::vector<uint8_t>& bytes, int flags);
  bool (*encode)(const std::string& extension, const cv::Mat& picture, std::vector<uint8_t>& bytes,
                 const std::vector<int>& settings);
  bool (*haveReader)(const std::string& path);
  bool (*haveWriter)(const std::string& name);
};

// Loads the module at the first call. Throws Failure.
const PictureCodecs& LoadPictureCodecs();

}  // namespace kolm
