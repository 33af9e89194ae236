// Making FFmpeg's objects.
#include "tools/kolm/media.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/imgutils.h>
}

#include <new>

namespace kolm {

namespace {

constexpr int kMargin = 64;

template <typename Pointer>
Pointer Checked(typename Pointer::pointer object) {
  if (object == nullptr) throw std::bad_alloc();
  return Pointer(object);
}

}  // namespace

FramePointer NewFrame() { return Checked<FramePointer>(av_frame_alloc()); }

PacketPointer NewPacket() { return Checked<PacketPointer>(av_packet_alloc()); }

std::string AvErrorText(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE];
  av_strerror(error, text, sizeof text);
  return text;
}

FramePool::FramePool(int width, int height, AVPixelFormat format, int rowAlignment)
    : width_(width), height_(height), format_(format), rowAlignment_(rowAlignment) {
  const int bytes = av_image_get_buffer_size(format, width, height, rowAlignment);
  if (bytes < 0) throw std::bad_alloc();
  pool_ = Checked<decltype(pool_)>(
      av_buffer_pool_init(static_cast<size_t>(bytes) + kMargin, av_buffer_allocz));
}

FramePointer FramePool::Get() const {
  FramePointer frame = NewFrame();
  frame->buf[0] = av_buffer_pool_get(pool_.get());
  if (frame->buf[0] == nullptr) throw std::bad_alloc();
  frame->width = width_;
  frame->height = height_;
  frame->format = format_;
  av_image_fill_arrays(frame->data, frame->linesize, frame->buf[0]->data, format_, width_, height_,
                       rowAlignment_);
  return frame;
}

}  // namespace kolm
