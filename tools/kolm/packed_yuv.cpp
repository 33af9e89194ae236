// Colour conversion by libswscale.
#include "tools/kolm/packed_yuv.h"

#include <memory>
#include <string>

extern "C" {
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include "tools/kolm/failure.h"

namespace kolm {
namespace {

// libswscale's vector code may touch whole blocks at a row's end: rows of its own pictures are
// padded up to this many bytes.
constexpr int kRowAlignment = 64;

struct FreeMemory {
  void operator()(uint8_t* memory) const { av_free(memory); }
};

struct PlainPicture {
  std::unique_ptr<uint8_t, FreeMemory> memory;
  uint8_t* planes[4];
  int strides[4];
};

PlainPicture AllocatePicture(cv::Size size, AVPixelFormat format) {
  PlainPicture picture = {};
  if (av_image_alloc(picture.planes, picture.strides, size.width, size.height, format,
                     kRowAlignment) < 0) {
    throw Failure(ExitCode::PictureSize, "the picture does not fit into memory");
  }
  picture.memory.reset(picture.planes[0]);
  return picture;
}

int RowBytes(cv::Size size, AVPixelFormat format) {
  return av_image_get_linesize(format, size.width, 0);
}

// Converts tightly packed rows to tightly packed rows.
void Convert(const uint8_t* source, int sourceStride, AVPixelFormat sourceFormat,
             bool sourceIsFullRange, uint8_t* destination, AVPixelFormat destinationFormat,
             cv::Size size) {
  // Bit-exact, so that a picture comes out the same on every processor.
  const std::unique_ptr<SwsContext, void (*)(SwsContext*)> context(
      sws_getContext(
          size.width, size.height, sourceFormat, size.width, size.height, destinationFormat,
          SWS_BILINEAR | SWS_ACCURATE_RND | SWS_BITEXACT | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP,
          nullptr, nullptr, nullptr),
      sws_freeContext);
  const int* bt601 = sws_getCoefficients(SWS_CS_ITU601);
  constexpr int kUnchanged = 1 << 16;
  if (!context || sws_setColorspaceDetails(context.get(), bt601, sourceIsFullRange, bt601,
                                           !sourceIsFullRange, 0, kUnchanged, kUnchanged) < 0) {
    throw Failure(ExitCode::PictureSize, "a picture of " + std::to_string(size.width) + " x " +
                                             std::to_string(size.height) +
                                             " pixels cannot be converted to YUV and back");
  }
  const PlainPicture from = AllocatePicture(size, sourceFormat);
  const PlainPicture to = AllocatePicture(size, destinationFormat);
  av_image_copy_plane(from.planes[0], from.strides[0], source, sourceStride,
                      RowBytes(size, sourceFormat), size.height);
  sws_scale(context.get(), from.planes, from.strides, 0, size.height, to.planes, to.strides);
  const int rowBytes = RowBytes(size, destinationFormat);
  av_image_copy_plane(destination, rowBytes, to.planes[0], to.strides[0], rowBytes, size.height);
}

}  // namespace

std::vector<uint8_t> PackedFromPicture(const cv::Mat& picture) {
  std::vector<uint8_t> frame(picture.total() * 2);
  Convert(picture.data, static_cast<int>(picture.step), AV_PIX_FMT_BGR24, true, frame.data(),
          AV_PIX_FMT_YUYV422, picture.size());
  return frame;
}

cv::Mat PictureFromPacked(const std::vector<uint8_t>& frame, cv::Size size) {
  cv::Mat picture(size, CV_8UC3);
  Convert(frame.data(), RowBytes(size, AV_PIX_FMT_YUYV422), AV_PIX_FMT_YUYV422, false, picture.data,
          AV_PIX_FMT_BGR24, size);
  return picture;
}

}  // namespace kolm
