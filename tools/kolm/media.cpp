// Making FFmpeg's objects.
#include "tools/kolm/media.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/imgutils.h>
}

#include <sys/mman.h>

#include <cstdlib>
#include <new>

#include "tools/kolm/new_file.h"

namespace kolm {

namespace {

constexpr int kMargin = 64;

// Large frames in large pages: hundreds of page faults fewer for each.
AVBufferRef* AllocateFrame(size_t bytes) {
  constexpr size_t kLargePage = size_t{2} << 20;
  if (bytes < kLargePage / 2) return av_buffer_allocz(bytes);
  const size_t size = (bytes + kLargePage - 1) / kLargePage * kLargePage;
  void* memory = std::aligned_alloc(kLargePage, size);
  if (memory == nullptr) return nullptr;
  madvise(memory, size, MADV_HUGEPAGE);
  return av_buffer_create(
      static_cast<uint8_t*>(memory), bytes, [](void*, uint8_t* data) { std::free(data); }, nullptr,
      0);
}

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

std::string WhereText(const std::filesystem::path& output) {
  return "what was done until then is in " + (output == "-" ? "standard output" : Quoted(output));
}

FramePool::FramePool(int width, int height, AVPixelFormat format, int rowAlignment)
    : width_(width), height_(height), format_(format), rowAlignment_(rowAlignment) {
  const int bytes = av_image_get_buffer_size(format, width, height, rowAlignment);
  if (bytes < 0) throw std::bad_alloc();
  pool_ = Checked<decltype(pool_)>(
      av_buffer_pool_init(static_cast<size_t>(bytes) + kMargin, AllocateFrame));
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
