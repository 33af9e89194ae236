// Frames on their road from a source through the module to a sink, in FFmpeg's own objects.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kolm {

struct FreeAvObject {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVBufferPool* pool) const { av_buffer_pool_uninit(&pool); }
};
using FramePointer = std::unique_ptr<AVFrame, FreeAvObject>;
using PacketPointer = std::unique_ptr<AVPacket, FreeAvObject>;
using CodecPointer = std::unique_ptr<AVCodecContext, FreeAvObject>;

// Each throws std::bad_alloc.
FramePointer NewFrame();
PacketPointer NewPacket();

// What libavformat and its like mean by a negative result.
std::string AvErrorText(int error);

// Frames of one shape, whose memory is used again once the last reference to it is gone. Threads
// may get and free frames at the same time.
class FramePool {
 public:
  // Rows begin at multiples of `rowAlignment` bytes. A margin behind the last row lets vector code
  // touch whole blocks.
  FramePool(int width, int height, AVPixelFormat format, int rowAlignment);

  FramePointer Get() const;

 private:
  int width_, height_;
  AVPixelFormat format_;
  int rowAlignment_;
  std::unique_ptr<AVBufferPool, FreeAvObject> pool_;
};

// For messages of work that did not come to its end.
std::string WhereText(const std::filesystem::path& output);

// What stays the same from a source's first frame to its last. The pointers hold as long as the
// source lives.
struct MediaShape {
  int width = 0, height = 0;  // pixels; the width is even
  AVRational rate = {25, 1};  // frames a second; 25 where the source does not tell
  AVRational timeBase = {1, 25};
  AVRational pixelAspect = {0, 1};
  int64_t frames = 0;         // about as many will come; 0 if nobody knows
  bool halvesChroma = false;  // 4:2:0: colour in every second row only
  bool isRaw = false;         // bare packed frames
  // For their metadata, if there is a container.
  const AVFormatContext* container = nullptr;
  AVStream* picture = nullptr;
  std::vector<AVStream*> sounds;
};

// A frame (packed 4:2:2, BT.601 limited range, rows without padding) or a packet of one of the
// shape's sounds. Times count from the source's beginning.
struct MediaItem {
  FramePointer frame;
  PacketPointer sound;
  std::optional<int> number;  // of a picture of a numbered sequence
};

class FrameSource {
 public:
  virtual ~FrameSource() = default;

  const MediaShape& Shape() const { return shape_; }

  // False at the end, which may come early: then Damage tells why.
  virtual bool Next(MediaItem& item) = 0;

  // What was wrong with what has been read so far; empty if nothing was.
  const std::string& Damage() const { return damage_; }

 protected:
  MediaShape shape_;
  std::string damage_;
};

// Each call throws Failure.
class FrameSink {
 public:
  virtual ~FrameSink() = default;

  virtual void Write(MediaItem item) = 0;

  // Gives the output its end and its name. Without this call nothing is left, but for the next one.
  virtual void Finish() = 0;

  // Instead of Finish, also once Write or Finish has failed: keeps what was written so far if it
  // can, under another name, and tells where.
  virtual std::string FinishAsPart() { return {}; }

  // What of the source was refused; empty if nothing was.
  const std::string& Damage() const { return damage_; }

 protected:
  std::string damage_;
};

}  // namespace kolm
