// Demultiplexes, decodes and converts to packed frames.
#include "tools/kolm/video_source.h"

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/avstring.h>
#include <libavutil/opt.h>
}

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <thread>
#include <utility>

#include "tools/kolm/container_structure.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/frame_conversion.h"
#include "tools/kolm/frame_rotation.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/progress.h"
#include "tools/kolm/stop_request.h"

namespace kolm {
namespace {

struct CloseInput {
  void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};

struct FreeIo {
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};

// A pipe or the like, whose beginning has been read to see what it is.
struct StreamReader {
  int file = -1;
  std::string start;

  StreamReader() = default;
  ~StreamReader() {
    if (file >= 0) close(file);
  }
  StreamReader(const StreamReader&) = delete;
  StreamReader& operator=(const StreamReader&) = delete;

  static int Read(void* opaque, uint8_t* buffer, int size) {
    auto& [file, start] = *static_cast<StreamReader*>(opaque);
    if (!start.empty()) {
      const size_t count = std::min(start.size(), static_cast<size_t>(size));
      std::copy_n(start.begin(), count, buffer);
      start.erase(0, count);
      return static_cast<int>(count);
    }
    while (true) {
      WaitForInput(file);
      if (StopRequested()) return AVERROR_EXIT;
      const ssize_t count = read(file, buffer, static_cast<size_t>(size));
      if (count > 0) return static_cast<int>(count);
      if (count == 0) return AVERROR_EOF;
      if (errno != EINTR && errno != EAGAIN) return AVERROR(errno);
    }
  }
};

class VideoSource : public FrameSource {
 public:
  explicit VideoSource(std::string name) : name_(std::move(name)) {
    AVFormatContext* input = avformat_alloc_context();
    if (input == nullptr) throw std::bad_alloc();
    input->interrupt_callback.callback = [](void*) { return StopRequested() ? 1 : 0; };
    input_.reset(input);
    // A playlist or the like does not reach for other places.
    av_opt_set(input, "protocol_whitelist", "file", 0);
  }

  void ReadFrom(int file, const std::string& start) {
    constexpr int kBuffer = 1 << 18;
    reader_.file = file;
    reader_.start = start;
    auto* buffer = static_cast<uint8_t*>(av_malloc(kBuffer));
    if (buffer == nullptr) throw std::bad_alloc();
    io_.reset(
        avio_alloc_context(buffer, kBuffer, 0, &reader_, StreamReader::Read, nullptr, nullptr));
    if (!io_) {
      av_free(buffer);
      throw std::bad_alloc();
    }
    input_->pb = io_.get();
    input_->flags |= AVFMT_FLAG_CUSTOM_IO;
  }

  // Reading then never waits in a device, so that a stop is noticed.
  void DoNotWait() { input_->flags |= AVFMT_FLAG_NONBLOCK; }

  // Returns libavformat's result. After a failure the object is of no more use.
  int Open(const std::string& url, const AVInputFormat* format,
           const std::vector<std::pair<const char*, std::string>>& settings) {
    AVDictionary* dictionary = nullptr;
    for (const auto& [key, value] : settings) av_dict_set(&dictionary, key, value.c_str(), 0);
    AVFormatContext* input = input_.release();
    const int result = avformat_open_input(&input, url.c_str(), format, &dictionary);
    input_.reset(input);
    av_dict_free(&dictionary);
    return result;
  }

  void Begin() {
    if (avformat_find_stream_info(input_.get(), nullptr) < 0) Fail("its streams are damaged");
    const AVCodec* codec = nullptr;
    const int best = av_find_best_stream(input_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (best == AVERROR_DECODER_NOT_FOUND) Fail("its codec is not known");
    if (best < 0) Fail("there is no video in it");
    stream_ = input_->streams[best];
    OpenDecoder(codec);

    for (unsigned i = 0; i < input_->nb_streams; ++i) {
      AVStream* stream = input_->streams[i];
      const bool isSound = stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
      if (isSound) shape_.sounds.push_back(stream);
      if (!isSound && stream != stream_) stream->discard = AVDISCARD_ALL;
    }
    const AVRational rate = av_guess_frame_rate(input_.get(), stream_, nullptr);
    if (rate.num > 0 && rate.den > 0) shape_.rate = rate;
    shape_.timeBase = stream_->time_base;
    shape_.container = input_.get();
    shape_.picture = stream_;
    shape_.frames = stream_->nb_frames;
    if (input_->start_time != AV_NOPTS_VALUE) start_ = input_->start_time;
    // Some formats tell the time of their end instead of their length.
    const bool tellsEnd = av_match_name(input_->iformat->name, "matroska,webm,flv") != 0;
    const int64_t length = input_->duration - (tellsEnd ? std::max<int64_t>(0, start_) : 0);
    if (shape_.frames <= 0 && input_->duration > 0 && length > 0) {
      shape_.frames = av_rescale_q(length, AV_TIME_BASE_Q, av_inv_q(shape_.rate));
    }
    FindRotation();

    // Packets of sound before the first frame come out before it.
    decoded_ = NewFrame();
    packet_ = NewPacket();
    MediaItem item;
    bool isThere = true;
    while ((isThere = Decode(item)) && item.sound) KeepEarly(std::move(item.sound));
    if (!isThere) {
      if (StopRequested()) throw Failure(ExitCode::Stopped, "stopped before the first frame");
      const bool isPiped = io_ != nullptr;
      if (isPiped && av_match_name("mp4", input_->iformat->name) != 0) {
        Fail(
            "no frame can be decoded (an MP4 file can have its index at its end and is then no "
            "stream: give its name)");
      }
      Fail(damage_.empty() ? "there is no frame in it" : "no frame can be decoded");
    }
    shape_.halvesChroma = HalvesChroma(*item.frame);
    shape_.pixelAspect = av_guess_sample_aspect_ratio(input_.get(), stream_, item.frame.get());
    if (rotation_ && rotation_->Transposes() && shape_.pixelAspect.num > 0) {
      shape_.pixelAspect = av_inv_q(shape_.pixelAspect);
    }
    item.frame = Upright(std::move(item.frame));
    const AVFrame& first = *item.frame;
    CheckSmallest(name_, first.width, first.height);
    CheckLargest(name_, first.width, first.height);
    shape_.width = first.width - first.width % 2;
    shape_.height = first.height;
    if (first.width % 2 != 0) {
      Tell(name_ + " is " + std::to_string(first.width) +
           " pixels wide; its last column is left out, as widths are even");
    }
    width_ = first.width;
    height_ = first.height;
    packed_ = std::make_unique<PackedConverter>(shape_.width, shape_.height);
    first_ = packed_->Convert(std::move(item.frame));
  }

  bool Next(MediaItem& item) override {
    item = {};
    if (!early_.empty()) {
      item.sound = std::move(early_.front());
      early_.pop_front();
      return true;
    }
    if (first_) {
      item.frame = std::move(first_);
      return true;
    }
    if (!Decode(item)) return false;
    if (item.frame) item.frame = Packed(std::move(item.frame));
    return true;
  }

  [[noreturn]] void Fail(const std::string& reason) const {
    throw Failure(ExitCode::UnreadablePicture, "cannot read " + name_ + ": " + reason +
                                                   "; expected a video that FFmpeg's "
                                                   "libraries read");
  }

 private:
  // Of hours of sound before the first frame only the last are kept: memory has an end.
  void KeepEarly(PacketPointer sound) {
    constexpr int64_t kMostBytes = 32 << 20;
    earlyBytes_ += sound->size;
    early_.push_back(std::move(sound));
    while (earlyBytes_ > kMostBytes) {
      earlyBytes_ -= early_.front()->size;
      early_.pop_front();
      damage_ = "its sound begins too long before its first frame, and is left out there";
    }
  }

  static bool HalvesChroma(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P ||
           format == AV_PIX_FMT_NV12 || format == AV_PIX_FMT_NV21;
  }

  void FindRotation() {
    const uint8_t* matrix = av_stream_get_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    if (matrix == nullptr) return;
    rotation_ = std::make_unique<FrameRotation>(reinterpret_cast<const int32_t*>(matrix));
    if (rotation_->IsNone()) rotation_.reset();
  }

  FramePointer Upright(FramePointer frame) {
    return rotation_ ? rotation_->Turn(*frame) : std::move(frame);
  }

  void OpenDecoder(const AVCodec* codec) {
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_) throw std::bad_alloc();
    if (avcodec_parameters_to_context(decoder_.get(), stream_->codecpar) < 0) {
      Fail("its codec is not known");
    }
    CheckLargest(name_, decoder_->width, decoder_->height);
    decoder_->pkt_timebase = stream_->time_base;
    decoder_->max_pixels = kMostPixels;
    decoder_->thread_count = 0;
    if (const int error = avcodec_open2(decoder_.get(), codec, nullptr); error < 0) {
      Fail("its decoder cannot be opened: " + AvErrorText(error));
    }
  }

  // The next decoded frame as it is, or packet of sound; false at the end.
  bool Decode(MediaItem& item) {
    item = {};
    while (!StopRequested()) {
      const int result = avcodec_receive_frame(decoder_.get(), decoded_.get());
      if (result == 0) {
        if ((decoded_->flags & AV_FRAME_FLAG_CORRUPT) != 0 || decoded_->decode_error_flags != 0) {
          damage_ = "some frames are damaged";
        }
        item.frame = std::exchange(decoded_, NewFrame());
        GiveTime(*item.frame);
        return true;
      }
      if (result == AVERROR_EOF) return false;
      if (result != AVERROR(EAGAIN)) {
        damage_ = "some frames cannot be decoded";
        continue;
      }
      if (ReadPacket()) {
        item.sound = std::exchange(packet_, NewPacket());
        return true;
      }
    }
    return false;
  }

  // Feeds the decoder; true if the packet is one of sound.
  bool ReadPacket() {
    const int result = av_read_frame(input_.get(), packet_.get());
    if (result == AVERROR(EAGAIN)) {  // of a device that has no frame yet
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      return false;
    }
    if (result < 0) {
      if (result != AVERROR_EOF && result != AVERROR_EXIT) {
        damage_ = "it breaks off: " + AvErrorText(result);
      } else if (input_->pb != nullptr && input_->pb->error < 0 &&
                 input_->pb->error != AVERROR_EXIT && input_->pb->error != AVERROR_EOF) {
        damage_ = "it breaks off: " + AvErrorText(input_->pb->error);
      }
      if (damage_.empty() && result == AVERROR_EOF) LookForMissingEnd();
      avcodec_send_packet(decoder_.get(), nullptr);
      return false;
    }
    AVStream* stream = input_->streams[packet_->stream_index];
    FollowJump(*packet_, *stream);
    lastEnd_ = packet_->pos < 0 ? -1 : packet_->pos + packet_->size;
    if (packet_->pts != AV_NOPTS_VALUE) {
      latest_ = std::max(latest_, av_rescale_q(packet_->pts + packet_->duration, stream->time_base,
                                               AV_TIME_BASE_Q));
    }
    if ((packet_->flags & AV_PKT_FLAG_CORRUPT) != 0) damage_ = "it ends early or is damaged";
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
      const int64_t start = av_rescale_q(start_, AV_TIME_BASE_Q, stream->time_base);
      if (packet_->pts != AV_NOPTS_VALUE) packet_->pts -= start;
      if (packet_->dts != AV_NOPTS_VALUE) packet_->dts -= start;
      return true;
    }
    if (stream == stream_) {
      const int sent = avcodec_send_packet(decoder_.get(), packet_.get());
      if (sent < 0 && sent != AVERROR(EAGAIN)) damage_ = "some frames cannot be decoded";
    }
    av_packet_unref(packet_.get());
    return false;
  }

  // In transport and program streams the clock may jump, where recordings were joined for instance:
  // what comes then goes on where its stream was. A stream by itself may pause, and then agrees
  // with the others.
  void FollowJump(AVPacket& packet, const AVStream& stream) {
    constexpr int64_t kLongestGap = 60 * AV_TIME_BASE, kMostBack = AV_TIME_BASE / 10;
    const bool isOurs = &stream == stream_ || stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
    if (av_match_name(input_->iformat->name, "mpegts,mpeg") == 0 || !isOurs ||
        packet.dts == AV_NOPTS_VALUE) {
      return;
    }
    int64_t dts = av_rescale_q(packet.dts, stream.time_base, AV_TIME_BASE_Q) + shift_;
    const bool isFar = std::all_of(clocks_.begin(), clocks_.end(), [&](const auto& clock) {
      return std::abs(dts - clock.second.last) > kLongestGap;
    });
    const bool isNew = clocks_.count(stream.index) == 0;
    Clock& clock = clocks_[stream.index];
    if (!isNew && (isFar || dts < clock.last - kMostBack)) {
      shift_ += clock.last + clock.step - dts;
      dts = clock.last + clock.step;
    }
    if (!isNew) clock.step = std::clamp<int64_t>(dts - clock.last, 0, AV_TIME_BASE);
    clock.last = dts;
    const int64_t shift = av_rescale_q(shift_, AV_TIME_BASE_Q, stream.time_base);
    packet.dts += shift;
    if (packet.pts != AV_NOPTS_VALUE) packet.pts += shift;
  }

  // Many demultiplexers take the end of a file for the end of its contents.
  void LookForMissingEnd() {
    constexpr int kLongestFrameHeader = 86;  // of YUV4MPEG2, with its parameters
    constexpr int64_t kTolerance = AV_TIME_BASE / 2;
    if (std::strcmp(input_->iformat->name, "yuv4mpegpipe") == 0) {
      if (lastEnd_ >= 0 && avio_tell(input_->pb) > lastEnd_ + kLongestFrameHeader) {
        damage_ = "it ends within a frame";
      }
      return;
    }
    // These count their last frame, whose length they do not tell otherwise.
    const bool tellsStructure = av_match_name("matroska", input_->iformat->name) != 0 ||
                                av_match_name("flv", input_->iformat->name) != 0;
    if (tellsStructure && io_ == nullptr) {
      if (!HasWholeStructure(input_->url + std::strlen("file:"))) damage_ = "it ends early";
      return;
    }
    const bool hasOthers = std::any_of(
        input_->streams, input_->streams + input_->nb_streams, [&](const AVStream* stream) {
          return stream != stream_ && stream->codecpar->codec_type != AVMEDIA_TYPE_AUDIO;
        });
    // Whether a length or the time of the end is told: then all is there in any case.
    const int64_t missing = input_->duration - std::max(latest_, latest_ - start_);
    if (input_->duration > 0 && !hasOthers && missing > kTolerance &&
        input_->duration_estimation_method == AVFMT_DURATION_FROM_STREAM) {
      damage_ = "it ends " + std::to_string(missing / AV_TIME_BASE) + "." +
                std::to_string(missing / (AV_TIME_BASE / 10) % 10) +
                " seconds earlier than it says";
    }
  }

  void GiveTime(AVFrame& frame) {
    const int64_t start = av_rescale_q(start_, AV_TIME_BASE_Q, stream_->time_base);
    const int64_t step =
        std::max<int64_t>(1, av_rescale_q(1, av_inv_q(shape_.rate), stream_->time_base));
    const int64_t told = frame.best_effort_timestamp;
    frame.pts = told == AV_NOPTS_VALUE ? lastTime_ + step : told - start;
    lastTime_ = frame.pts;
  }

  FramePointer Packed(FramePointer frame) {
    frame = Upright(std::move(frame));
    if (frame->width != width_ || frame->height != height_) {
      CheckLargest(name_, frame->width, frame->height);
      width_ = frame->width;
      height_ = frame->height;
      Tell(name_ + " changes to " + SizeText(width_, height_) +
           "; frames are scaled to the first one's " + SizeText(shape_.width, shape_.height));
    }
    return packed_->Convert(std::move(frame));
  }

  std::string name_;
  StreamReader reader_;
  std::unique_ptr<AVIOContext, FreeIo> io_;
  std::unique_ptr<AVFormatContext, CloseInput> input_;
  AVStream* stream_ = nullptr;
  CodecPointer decoder_;
  std::unique_ptr<FrameRotation> rotation_;
  std::unique_ptr<PackedConverter> packed_;
  FramePointer decoded_, first_;
  PacketPointer packet_;
  std::deque<PacketPointer> early_;
  int64_t earlyBytes_ = 0;
  int64_t start_ = 0;      // in AV_TIME_BASE units
  int64_t lastTime_ = -1;  // in the stream's units
  // In AV_TIME_BASE units: what is added to a clock that jumps; each stream's last time and the
  // step to it.
  struct Clock {
    int64_t last = 0, step = 0;
  };
  int64_t shift_ = 0;
  std::map<int, Clock> clocks_;
  int64_t latest_ = 0;    // end of what has been read, in AV_TIME_BASE units
  int64_t lastEnd_ = -1;  // of the last packet, in bytes
  int width_ = 0, height_ = 0;
};

void TellUnused(const SourceOptions& options) {
  if (options.width > 0) Tell(InputName(options) + " tells its size itself: -s is left aside");
  if (options.rate.num > 0) Tell(InputName(options) + " tells its rate itself: -r is left aside");
}

// Loaded only here, as it brings a hundred other libraries along that would delay every start.
void RegisterDevices() {
  const std::string name = "libavdevice.so." + std::to_string(LIBAVDEVICE_VERSION_MAJOR);
  void* library = dlopen(name.c_str(), RTLD_NOW);
  void* address = library == nullptr ? nullptr : dlsym(library, "avdevice_register_all");
  if (address == nullptr) {
    throw Failure(ExitCode::UnreadablePicture, "cameras cannot be read: the library " + name +
                                                   " is missing; install FFmpeg's libavdevice");
  }
  reinterpret_cast<decltype(&avdevice_register_all)>(address)();
}

}  // namespace

std::unique_ptr<FrameSource> OpenVideo(const SourceOptions& options) {
  auto source = std::make_unique<VideoSource>(Quoted(options.input));
  const std::string path = std::filesystem::absolute(options.input).string();
  if (const int error = source->Open("file:" + path, nullptr, {}); error < 0) {
    source->Fail(error == AVERROR_INVALIDDATA
                     ? "it is damaged, or neither picture nor video (raw frames need -s WxH)"
                     : AvErrorText(error));
  }
  source->Begin();
  TellUnused(options);
  return source;
}

std::unique_ptr<FrameSource> OpenDevice(const SourceOptions& options) {
  RegisterDevices();
  const AVInputFormat* format = av_find_input_format("video4linux2");
  std::vector<std::pair<const char*, std::string>> settings;
  if (options.width > 0) {
    settings.emplace_back("video_size",
                          std::to_string(options.width) + "x" + std::to_string(options.height));
  }
  if (options.rate.num > 0) {
    settings.emplace_back(
        "framerate", std::to_string(options.rate.num) + "/" + std::to_string(options.rate.den));
  }
  // Best what needs no conversion; else what the device has.
  auto best = settings;
  best.emplace_back("pixel_format", "yuyv422");
  int error = 0;
  for (const auto& attempt : {best, settings}) {
    auto source = std::make_unique<VideoSource>(Quoted(options.input));
    source->DoNotWait();
    error = source->Open(options.input, format, attempt);
    if (error < 0) continue;
    source->Begin();
    return source;
  }
  throw Failure(ExitCode::UnreadablePicture,
                "cannot read " + Quoted(options.input) + ": " + AvErrorText(error) +
                    "; expected a camera that V4L2 knows and, with -s or -r, a size and rate that "
                    "it has");
}

std::unique_ptr<FrameSource> OpenVideoStream(int file, const std::string& start,
                                             const SourceOptions& options) {
  auto source = std::make_unique<VideoSource>(InputName(options));
  source->ReadFrom(file, start);
  if (source->Open("", nullptr, {}) < 0) {
    if (StopRequested()) throw Failure(ExitCode::Stopped, "stopped before the first frame");
    source->Fail(
        "it is neither YUV4MPEG2 nor another video that can be told by its beginning "
        "(raw frames need -s WIDTHxHEIGHT)");
  }
  source->Begin();
  TellUnused(options);
  return source;
}

}  // namespace kolm
