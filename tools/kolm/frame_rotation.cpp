// Turns planes by OpenCV, after libswscale has given colours a sample for each pixel.
#include "tools/kolm/frame_rotation.h"

#include <opencv2/core.hpp>

namespace kolm {

FrameRotation::FrameRotation(const int32_t* matrix) {
  const int32_t xx = matrix[0], xy = matrix[1], yx = matrix[3], yy = matrix[4];
  if (xx == 0 && yy == 0 && xy != 0 && yx != 0) {
    transposes_ = true;
    mirrorsRows_ = yx < 0;
    mirrorsColumns_ = xy < 0;
  } else if (xy == 0 && yx == 0) {
    mirrorsRows_ = xx < 0;
    mirrorsColumns_ = yy < 0;
  }
}

FramePointer FrameRotation::Turn(const AVFrame& frame) {
  constexpr int kRowAlignment = 64;
  const FramePointer full =
      FramePool(frame.width, frame.height, AV_PIX_FMT_YUV444P, kRowAlignment).Get();
  av_frame_copy_props(full.get(), &frame);
  full->colorspace = AVCOL_SPC_SMPTE170M;
  full->color_range = AVCOL_RANGE_MPEG;
  converter_.Convert(frame, *full);
  FramePointer turned =
      FramePool(transposes_ ? frame.height : frame.width, transposes_ ? frame.width : frame.height,
                AV_PIX_FMT_YUV444P, kRowAlignment)
          .Get();
  av_frame_copy_props(turned.get(), full.get());
  for (int plane = 0; plane < 3; ++plane) {
    const cv::Mat from(full->height, full->width, CV_8U, full->data[plane],
                       static_cast<size_t>(full->linesize[plane]));
    cv::Mat to(turned->height, turned->width, CV_8U, turned->data[plane],
               static_cast<size_t>(turned->linesize[plane]));
    if (transposes_) {
      cv::transpose(from, to);
    } else {
      from.copyTo(to);
    }
    if (mirrorsRows_) cv::flip(to, to, 1);
    if (mirrorsColumns_) cv::flip(to, to, 0);
  }
  return turned;
}

}  // namespace kolm
