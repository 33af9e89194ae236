// Colour conversion by libswscale, which leaves packed 4:2:2 alone.
#include "tools/kolm/frame_conversion.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <string>
#include <utility>

#include "tools/kolm/failure.h"

namespace kolm {
namespace {

// libswscale's vector code may touch whole blocks at a row's end.
constexpr int kRowAlignment = 64;

int Matrix(const AVFrame& frame) {
  switch (frame.colorspace) {
    case AVCOL_SPC_BT709:
      return SWS_CS_ITU709;
    case AVCOL_SPC_FCC:
      return SWS_CS_FCC;
    case AVCOL_SPC_SMPTE240M:
      return SWS_CS_SMPTE240M;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return SWS_CS_BT2020;
    default:
      return SWS_CS_ITU601;
  }
}

// The formats whose very name says full range, and their plain forms.
AVPixelFormat PlainFormat(AVPixelFormat format) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
      return AV_PIX_FMT_YUV411P;
    default:
      return format;
  }
}

bool IsFullRange(const AVFrame& frame) {
  const auto format = static_cast<AVPixelFormat>(frame.format);
  return frame.color_range == AVCOL_RANGE_JPEG || PlainFormat(format) != format || IsRgb(format);
}

void MarkAsPacked(AVFrame& frame) {
  frame.colorspace = AVCOL_SPC_SMPTE170M;
  frame.color_range = AVCOL_RANGE_MPEG;
}

bool IsAligned(const AVFrame& frame) { return frame.linesize[0] % kRowAlignment == 0; }

}  // namespace

bool IsRgb(AVPixelFormat format) {
  const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(format);
  return description != nullptr &&
         (description->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

struct FrameConverter::Shape {
  int sourceWidth, sourceHeight, sourceFormat, sourceMatrix, sourceIsFullRange;
  int width, height, format, matrix, isFullRange;

  bool operator==(const Shape&) const = default;

  // Where two pixels beside each other share their colour on both sides, each row of colour goes to
  // the rows that it belongs to: 4:2:0 comes back from packed frames as it was.
  bool KeepsPairs() const {
    const auto hasPairs = [](int name) {
      const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(name));
      return description != nullptr && description->log2_chroma_w == 1;
    };
    return sourceWidth == width && sourceHeight == height && sourceMatrix == matrix &&
           hasPairs(sourceFormat) && hasPairs(format);
  }
};

FrameConverter::FrameConverter() = default;

FrameConverter::~FrameConverter() { sws_freeContext(context_); }

void FrameConverter::Convert(const AVFrame& source, AVFrame& destination) {
  const Shape shape = {source.width,
                       source.height,
                       PlainFormat(static_cast<AVPixelFormat>(source.format)),
                       Matrix(source),
                       IsFullRange(source),
                       destination.width,
                       destination.height,
                       PlainFormat(static_cast<AVPixelFormat>(destination.format)),
                       Matrix(destination),
                       IsFullRange(destination)};
  if (!shape_ || !(*shape_ == shape)) {
    sws_freeContext(context_);
    shape_.reset();
    context_ = sws_alloc_context();
    const auto set = [&](const char* name, int value) { av_opt_set_int(context_, name, value, 0); };
    if (context_ != nullptr) {
      set("srcw", shape.sourceWidth);
      set("srch", shape.sourceHeight);
      set("src_format", shape.sourceFormat);
      set("src_range", shape.sourceIsFullRange);
      set("dstw", shape.width);
      set("dsth", shape.height);
      set("dst_format", shape.format);
      set("dst_range", shape.isFullRange);
      set("sws_flags", SWS_ACCURATE_RND | (shape.KeepsPairs() ? SWS_POINT : SWS_BICUBIC));
    }
    constexpr int kUnchanged = 1 << 16;
    if (context_ == nullptr || sws_init_context(context_, nullptr, nullptr) < 0 ||
        (shape.sourceMatrix != shape.matrix &&
         sws_setColorspaceDetails(context_, sws_getCoefficients(shape.sourceMatrix),
                                  shape.sourceIsFullRange, sws_getCoefficients(shape.matrix),
                                  shape.isFullRange, 0, kUnchanged, kUnchanged) < 0)) {
      const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(source.format));
      throw Failure(ExitCode::PictureSize,
                    "frames of " + std::to_string(source.width) + " x " +
                        std::to_string(source.height) + " pixels in the format '" +
                        (name == nullptr ? "unknown" : name) +
                        "' cannot be converted; expected a format that libswscale knows");
    }
    shape_ = std::make_unique<Shape>(shape);
  }
  sws_scale(context_, source.data, source.linesize, 0, source.height, destination.data,
            destination.linesize);
}

PackedConverter::PackedConverter(int width, int height)
    : width_(width),
      height_(height),
      packed_(width, height, AV_PIX_FMT_YUYV422, 1),
      padded_(width, height, AV_PIX_FMT_YUYV422, kRowAlignment) {}

FramePointer PackedConverter::Convert(FramePointer frame) {
  if (frame->width == width_ + 1 && frame->height == height_) frame->width = width_;
  const bool fits = frame->format == AV_PIX_FMT_YUYV422 && frame->width == width_ &&
                    frame->height == height_ && Matrix(*frame) == SWS_CS_ITU601 &&
                    !IsFullRange(*frame);
  const int rowBytes = width_ * 2;
  if (fits && frame->linesize[0] == rowBytes) return frame;

  FramePointer packed = packed_.Get();
  av_frame_copy_props(packed.get(), frame.get());
  MarkAsPacked(*packed);
  if (!fits && IsAligned(*packed)) {
    converter_.Convert(*frame, *packed);
    return packed;
  }
  if (!fits) {
    FramePointer padded = padded_.Get();
    MarkAsPacked(*padded);
    converter_.Convert(*frame, *padded);
    frame = std::move(padded);
  }
  av_image_copy_plane(packed->data[0], rowBytes, frame->data[0], frame->linesize[0], rowBytes,
                      height_);
  return packed;
}

EncoderConverter::EncoderConverter(int width, int height, AVPixelFormat format, bool fullRange)
    : format_(format),
      fullRange_(fullRange),
      result_(width, height, format, kRowAlignment),
      padded_(width, height, AV_PIX_FMT_YUYV422, kRowAlignment) {}

FramePointer EncoderConverter::Convert(FramePointer packed) {
  MarkAsPacked(*packed);
  // Which frames stand alone is the encoder's choice, not what it was in the source.
  packed->pict_type = AV_PICTURE_TYPE_NONE;
  if (format_ == AV_PIX_FMT_YUYV422) return packed;
  FramePointer result = result_.Get();
  av_frame_copy_props(result.get(), packed.get());
  result->color_range = fullRange_ ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  if (IsRgb(format_)) result->colorspace = AVCOL_SPC_RGB;
  if (!IsAligned(*packed)) {
    FramePointer padded = padded_.Get();
    MarkAsPacked(*padded);
    av_image_copy_plane(padded->data[0], padded->linesize[0], packed->data[0], packed->linesize[0],
                        packed->width * 2, packed->height);
    packed = std::move(padded);
  }
  converter_.Convert(*packed, *result);
  return result;
}

}  // namespace kolm
