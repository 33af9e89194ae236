// Between pictures and Yuv16Frames.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace kolm {

// 8-bit BGR, of even width, to packed 4:2:2 YUV in BT.601 limited range.
std::vector<uint8_t> PackedFromPicture(const cv::Mat& picture);

// And back. Values outside the limited range, which effects may leave, are clipped.
cv::Mat PictureFromPacked(const std::vector<uint8_t>& frame, cv::Size size);

}  // namespace kolm
