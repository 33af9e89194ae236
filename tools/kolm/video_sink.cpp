// Converts, encodes and multiplexes.
#include "tools/kolm/video_sink.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/kolm/byte_output.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/frame_conversion.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/progress.h"

namespace kolm {
namespace {

constexpr int kDefaultQuality = 18;
constexpr int kDefaultScale = 3;  // of encoders that have a quantiser's scale instead

const AVOutputFormat* Format(const SinkOptions& options) {
  const bool isNamed = !options.format.empty();
  const AVOutputFormat* format = isNamed
                                     ? av_guess_format(options.format.c_str(), nullptr, nullptr)
                                     : av_guess_format(nullptr, options.output.c_str(), nullptr);
  // Those that open files by themselves would leave them half written.
  if (format == nullptr || format->video_codec == AV_CODEC_ID_NONE ||
      (format->flags & AVFMT_NOFILE) != 0) {
    if (isNamed) {
      throw Failure(ExitCode::UnwritableOutput,
                    "there is no video format '" + options.format +
                        "'; expected the name of a muxer of FFmpeg's libraries, such as "
                        "yuv4mpegpipe, rawvideo or matroska");
    }
    const std::string extension = std::filesystem::path(options.output).extension().string();
    FailToWrite(options.output,
                "no picture format and no video format has the extension '" + extension + "'",
                "an extension such as .mp4, .mkv, .y4m, .yuv or .png, or --format NAME");
  }
  return format;
}

const AVCodec* Encoder(const SinkOptions& options, const AVOutputFormat& format) {
  const AVCodec* codec = options.codec.empty()
                             ? avcodec_find_encoder(format.video_codec)
                             : avcodec_find_encoder_by_name(options.codec.c_str());
  if (codec == nullptr || codec->type != AVMEDIA_TYPE_VIDEO) {
    throw Failure(ExitCode::UnwritableOutput,
                  options.codec.empty()
                      ? "there is no encoder for the format '" + std::string(format.name) +
                            "'; name one with --codec, or choose another extension"
                      : "there is no video encoder '" + options.codec +
                            "'; expected the name of one of FFmpeg's libraries, such as libx264, "
                            "ffv1 or mpeg4");
  }
  return codec;
}

// Frames keep their colour in every row where the codec is lossless or takes nothing less; others
// are 4:2:0, which every player shows.
AVPixelFormat EncoderFormat(const AVCodec& codec, const MediaShape& shape) {
  const auto takes = [&](AVPixelFormat format) {
    if (codec.pix_fmts == nullptr) return format == AV_PIX_FMT_YUYV422;
    for (const AVPixelFormat* each = codec.pix_fmts; *each != AV_PIX_FMT_NONE; ++each) {
      if (*each == format) return true;
    }
    return false;
  };
  const bool canHalve = shape.height % 2 == 0;  // else its last row would have no colour
  if (codec.id == AV_CODEC_ID_WRAPPED_AVFRAME) {
    return canHalve && shape.halvesChroma ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV422P;
  }
  if (takes(AV_PIX_FMT_YUYV422)) return AV_PIX_FMT_YUYV422;
  if (codec.id == AV_CODEC_ID_MJPEG) return AV_PIX_FMT_YUVJ422P;
  const AVCodecDescriptor* description = avcodec_descriptor_get(codec.id);
  const bool isLossy = description == nullptr || (description->props & AV_CODEC_PROP_LOSSY) != 0;
  if (isLossy && canHalve && takes(AV_PIX_FMT_YUV420P)) return AV_PIX_FMT_YUV420P;
  if (takes(AV_PIX_FMT_YUV422P)) return AV_PIX_FMT_YUV422P;
  if (takes(AV_PIX_FMT_YUV420P)) return AV_PIX_FMT_YUV420P;
  return avcodec_find_best_pix_fmt_of_list(codec.pix_fmts, AV_PIX_FMT_YUYV422, 0, nullptr);
}

// Rates of these are a few fixed ones, or their clock is too coarse for a container's.
bool NeedsFixedRate(AVCodecID codec) {
  return codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO ||
         codec == AV_CODEC_ID_MPEG4 || codec == AV_CODEC_ID_H263 ||
         codec == AV_CODEC_ID_WRAPPED_AVFRAME;
}

// A rate that the encoder has: the source's, or the next higher one of a few, in which each frame
// keeps its time.
AVRational EncoderRate(const AVCodec& codec, AVRational rate) {
  if (codec.supported_framerates != nullptr) {
    AVRational best = codec.supported_framerates[0];
    for (const AVRational* each = codec.supported_framerates; each->num != 0; ++each) {
      const bool isEnough = av_cmp_q(*each, rate) >= 0, bestIsEnough = av_cmp_q(best, rate) >= 0;
      const bool isCloser = (av_cmp_q(*each, best) < 0) == isEnough;
      if (isEnough != bestIsEnough ? isEnough : isCloser) best = *each;
    }
    return best;
  }
  constexpr int kMostOfMpeg4 = 65535;
  if (codec.id == AV_CODEC_ID_MPEG4) {
    av_reduce(&rate.num, &rate.den, rate.num, rate.den, kMostOfMpeg4);
  }
  return rate;
}

// So fine that frames of an uneven rate keep their times, and so coarse that those of an even rate
// are evenly apart even if the source's own clock knows milliseconds only.
AVRational ClockOfMp4(AVRational rate) {
  constexpr double kTicksPerSecond = 240;
  const double ticks = std::ceil(kTicksPerSecond / av_q2d(rate));
  return av_mul_q(av_inv_q(rate), {1, static_cast<int>(std::clamp(ticks, 1.0, 1e6))});
}

struct FreeOutput {
  void operator()(AVFormatContext* output) const { avformat_free_context(output); }
};

struct FreeIo {
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};

class VideoSink : public FrameSink {
 public:
  VideoSink(const SinkOptions& options, const MediaShape& shape)
      : options_(options), sourceTimeBase_(shape.timeBase) {
    const AVOutputFormat* format = Format(options);
    const AVCodec* codec = Encoder(options, *format);
    AVFormatContext* output = nullptr;
    if (avformat_alloc_output_context2(&output, format, nullptr, nullptr) < 0) {
      throw std::bad_alloc();
    }
    muxer_.reset(output);
    isYuv4Mpeg_ =
        codec->id == AV_CODEC_ID_WRAPPED_AVFRAME && std::strcmp(format->name, "yuv4mpegpipe") == 0;
    OpenEncoder(*codec, shape);
    AddStreams(shape);
    packet_ = NewPacket();

    bytes_ = OpenByteOutput(options.output, options.overwrite);
    constexpr int kBuffer = 1 << 18;
    auto* buffer = static_cast<uint8_t*>(av_malloc(kBuffer));
    if (buffer == nullptr) throw std::bad_alloc();
    io_.reset(avio_alloc_context(buffer, kBuffer, 1, this, nullptr, WriteBytes,
                                 bytes_->CanSeek() ? SeekBytes : nullptr));
    if (!io_) {
      av_free(buffer);
      throw std::bad_alloc();
    }
    muxer_->pb = io_.get();
    muxer_->flags |= AVFMT_FLAG_CUSTOM_IO;
    Check(avformat_write_header(muxer_.get(), nullptr), "its header");
    hasHeader_ = true;
  }

  ~VideoSink() override {
    // Multiplexers free what they keep only here; nothing of it is to be written.
    if (hasHeader_ && !isFinished_) {
      isClosed_ = true;
      av_write_trailer(muxer_.get());
    }
  }
  VideoSink(const VideoSink&) = delete;
  VideoSink& operator=(const VideoSink&) = delete;

  void Write(MediaItem item) override {
    if (item.sound) {
      WriteSound(std::move(item.sound));
      return;
    }
    FramePointer frame = converter_->Convert(std::move(item.frame));
    if (isYuv4Mpeg_) {
      WriteYuv4Mpeg(std::move(frame));
      return;
    }
    const int64_t time = av_rescale_q(frame->pts, sourceTimeBase_, encoder_->time_base);
    frame->pts = std::max(time, lastTime_ + 1);
    lastTime_ = frame->pts;
    Encode(*frame);
  }

  void Finish() override {
    for (const Sound& sound : sounds_) {
      if (sound.isRefused && !sound.isTaken) TellLeftOut(*sound.stream->codecpar);
    }
    Flush();
    WriteEnd();
    bytes_->Finish();
  }

  std::string FinishAsPart() override {
    try {
      if (!failure_ && !isFinished_) Flush();
    } catch (const Failure&) {
    }
    try {
      failure_ = nullptr;
      if (!isFinished_) WriteEnd();
    } catch (const Failure&) {
    }
    const bool hasEnd = !isClosed_;
    isClosed_ = true;
    const std::filesystem::path part = bytes_->KeepPart();
    if (part.empty()) return {};
    return (hasEnd || !IsMp4() ? "" : "without the index that players need, ") + WhereText(part);
  }

 private:
  void OpenEncoder(const AVCodec& codec, const MediaShape& shape) {
    encoder_.reset(avcodec_alloc_context3(&codec));
    if (!encoder_) throw std::bad_alloc();
    AVCodecContext& encoder = *encoder_;
    encoder.width = shape.width;
    encoder.height = shape.height;
    encoder.pix_fmt = EncoderFormat(codec, shape);
    if (codec.id == AV_CODEC_ID_H264 && encoder.pix_fmt != AV_PIX_FMT_YUV420P) {
      Tell("frames of an odd height are encoded as 4:2:2, which some players do not show");
    }
    encoder.sample_aspect_ratio = shape.pixelAspect;
    encoder.framerate = EncoderRate(codec, shape.rate);
    const bool isVariable = (muxer_->oformat->flags & AVFMT_VARIABLE_FPS) != 0;
    encoder.time_base = NeedsFixedRate(codec.id) ? av_inv_q(encoder.framerate)
                        : isVariable             ? shape.timeBase
                        : IsMp4()                ? ClockOfMp4(encoder.framerate)
                                                 : av_inv_q(encoder.framerate);
    const bool fullRange = encoder.pix_fmt == AV_PIX_FMT_YUVJ422P || IsRgb(encoder.pix_fmt);
    encoder.color_range = fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    encoder.colorspace = IsRgb(encoder.pix_fmt) ? AVCOL_SPC_RGB : AVCOL_SPC_SMPTE170M;
    if (shape.picture != nullptr) {
      encoder.color_primaries = shape.picture->codecpar->color_primaries;
      encoder.color_trc = shape.picture->codecpar->color_trc;
    }
    encoder.thread_count = 0;
    if ((muxer_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
      encoder.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    SetQuality(encoder);
    // These print of their own accord.
    if (encoder.priv_data != nullptr) {
      av_opt_set(encoder.priv_data, "x265-params", "log-level=error", 0);
    }
    setenv("SVT_LOG", "1", 0);
    if (const int error = avcodec_open2(&encoder, &codec, nullptr); error < 0) {
      FailToEncode("the encoder '" + std::string(codec.name) + "' does not take frames of " +
                   std::to_string(shape.width) + " x " + std::to_string(shape.height) +
                   " pixels at " + std::to_string(av_q2d(shape.rate)) +
                   " a second: " + AvErrorText(error));
    }
    converter_ =
        std::make_unique<EncoderConverter>(shape.width, shape.height, encoder.pix_fmt, fullRange);
  }

  void SetQuality(AVCodecContext& encoder) const {
    const bool isGiven = options_.quality >= 0;
    const int quality = isGiven ? options_.quality : kDefaultQuality;
    encoder.bit_rate = 0;
    if (encoder.priv_data != nullptr && encoder.codec->priv_class != nullptr &&
        av_opt_set_int(encoder.priv_data, "crf", quality, 0) >= 0) {
      // A preview is wanted soon.
      av_opt_set(encoder.priv_data, "preset", "veryfast", 0);
      av_opt_set(encoder.priv_data, "deadline", "realtime", 0);
    } else {
      encoder.flags |= AV_CODEC_FLAG_QSCALE;
      encoder.global_quality = FF_QP2LAMBDA * (isGiven ? options_.quality : kDefaultScale);
    }
  }

  void AddStreams(const MediaShape& shape) {
    stream_ = NewStream(muxer_.get());
    if (avcodec_parameters_from_context(stream_->codecpar, encoder_.get()) < 0) {
      throw std::bad_alloc();
    }
    stream_->time_base = encoder_->time_base;
    stream_->avg_frame_rate = encoder_->framerate;
    stream_->sample_aspect_ratio = shape.pixelAspect;
    for (const AVStream* sound : shape.sounds) {
      if (!HoldsSound(*sound)) {
        TellLeftOut(*sound->codecpar);
        continue;
      }
      AVStream* stream = NewSound(muxer_.get(), *sound);
      CopyLabels(*sound, *stream);
      sounds_.push_back({sound, stream});
    }
    if (shape.container != nullptr) CopyTitles(*shape.container);
  }

  static AVStream* NewStream(AVFormatContext* muxer) {
    AVStream* stream = avformat_new_stream(muxer, nullptr);
    if (stream == nullptr) throw std::bad_alloc();
    return stream;
  }

  static AVStream* NewSound(AVFormatContext* muxer, const AVStream& sound) {
    AVStream* stream = NewStream(muxer);
    if (avcodec_parameters_copy(stream->codecpar, sound.codecpar) < 0) throw std::bad_alloc();
    stream->codecpar->codec_tag = 0;
    stream->time_base = sound.time_base;
    return stream;
  }

  void TellLeftOut(const AVCodecParameters& sound) const {
    Tell("sound in " + std::string(avcodec_get_name(sound.codec_id)) +
         " is left out: the format '" + muxer_->oformat->name + "' does not hold it");
  }

  // Tried out, as multiplexers have no other way to tell.
  bool HoldsSound(const AVStream& sound) const {
    const AVOutputFormat* format = muxer_->oformat;
    if (format->audio_codec == AV_CODEC_ID_NONE) return false;
    if (std::strcmp(format->name, "mpegts") == 0 && !IsKnownInTransportStreams(sound)) return false;
    AVFormatContext* output = nullptr;
    if (avformat_alloc_output_context2(&output, format, nullptr, nullptr) < 0) {
      throw std::bad_alloc();
    }
    const std::unique_ptr<AVFormatContext, FreeOutput> trial(output);
    AVStream* picture = NewStream(output);
    if (avcodec_parameters_copy(picture->codecpar, stream_->codecpar) < 0) throw std::bad_alloc();
    picture->time_base = stream_->time_base;
    for (const Sound& other : sounds_) NewSound(output, *other.source);
    NewSound(output, sound);
    if (avio_open_dyn_buf(&output->pb) < 0) throw std::bad_alloc();
    const bool isHeld = avformat_write_header(output, nullptr) >= 0;
    if (isHeld) av_write_trailer(output);
    uint8_t* bytes = nullptr;
    avio_close_dyn_buf(output->pb, &bytes);
    av_free(bytes);
    return isHeld;
  }

  // Others are written too, but no player finds them.
  static bool IsKnownInTransportStreams(const AVStream& sound) {
    switch (sound.codecpar->codec_id) {
      case AV_CODEC_ID_MP1:
      case AV_CODEC_ID_MP2:
      case AV_CODEC_ID_MP3:
      case AV_CODEC_ID_AAC:
      case AV_CODEC_ID_AAC_LATM:
      case AV_CODEC_ID_AC3:
      case AV_CODEC_ID_EAC3:
      case AV_CODEC_ID_DTS:
      case AV_CODEC_ID_TRUEHD:
      case AV_CODEC_ID_OPUS:
      case AV_CODEC_ID_S302M:
        return true;
      default:
        return false;
    }
  }

  static void CopyLabels(const AVStream& from, AVStream& to) {
    to.disposition = from.disposition;
    for (const char* key : {"language", "title"}) {
      const AVDictionaryEntry* entry = av_dict_get(from.metadata, key, nullptr, 0);
      if (entry != nullptr) av_dict_set(&to.metadata, key, entry->value, 0);
    }
  }

  void CopyTitles(const AVFormatContext& from) {
    for (const char* key : {"title", "artist", "author", "album", "date", "creation_time",
                            "comment", "description", "copyright", "genre", "location"}) {
      const AVDictionaryEntry* entry = av_dict_get(from.metadata, key, nullptr, 0);
      if (entry != nullptr) av_dict_set(&muxer_->metadata, key, entry->value, 0);
    }
    for (unsigned i = 0; i < from.nb_streams; ++i) {
      if (from.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE) {
        Tell("subtitles are left out");
        break;
      }
    }
  }

  void WriteSound(PacketPointer packet) {
    for (Sound& sound : sounds_) {
      if (sound.source->index != packet->stream_index) continue;
      packet->stream_index = sound.stream->index;
      packet->pos = -1;
      av_packet_rescale_ts(packet.get(), sound.source->time_base, sound.stream->time_base);
      Count(*packet);
      const int result = av_interleaved_write_frame(muxer_.get(), packet.get());
      if (failure_ || result == AVERROR(ENOMEM)) Check(result, "sound");
      (result < 0 ? sound.isRefused : sound.isTaken) = true;
      if (sound.isRefused && sound.isTaken) damage_ = "some packets of its sound are left out";
    }
  }

  void WritePackets() {
    int result = 0;
    while ((result = avcodec_receive_packet(encoder_.get(), packet_.get())) == 0) {
      packet_->stream_index = stream_->index;
      if (packet_->duration == 0) {
        packet_->duration = av_rescale_q(1, av_inv_q(encoder_->framerate), encoder_->time_base);
      }
      av_packet_rescale_ts(packet_.get(), encoder_->time_base, stream_->time_base);
      // The format's clock may be coarser than the frames are apart.
      if (packet_->dts != AV_NOPTS_VALUE) {
        packet_->dts = std::max(packet_->dts, lastDts_ + 1);
        packet_->pts = std::max(packet_->pts, packet_->dts);
        lastDts_ = packet_->dts;
      }
      Count(*packet_);
      Check(av_interleaved_write_frame(muxer_.get(), packet_.get()), "a frame");
    }
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) Check(result, "a frame");
  }

  void Flush() {
    Check(avcodec_send_frame(encoder_.get(), nullptr), "its end");
    WritePackets();
  }

  void WriteEnd() {
    isFinished_ = true;
    isLast_ = true;
    Check(av_write_trailer(muxer_.get()), "its end");
    avio_flush(io_.get());
    Check(io_->error, "its end");
  }

  // And its kin, of which nothing can be played without the index that is written last.
  bool IsMp4() const {
    return av_match_name(muxer_->oformat->name, "mov,mp4,3gp,3g2,psp,ipod,f4v") != 0;
  }

  void Count(const AVPacket& packet) {
    ++packets_;
    pendingBytes_ += packet.size;
  }

  // Room for what the multiplexer still holds and for an index of all packets.
  int64_t BytesToEnd() const {
    constexpr int64_t kHeaders = 1 << 18, kIndexEntry = 64;
    return kHeaders + packets_ * kIndexEntry + std::max<int64_t>(0, pendingBytes_);
  }

  void Encode(AVFrame& frame) {
    Check(avcodec_send_frame(encoder_.get(), &frame), "a frame");
    WritePackets();
  }

  // This format has no times: a frame that lasts longer is written several times. What comes less
  // than three quarters of a frame late is only unsteady.
  void WriteYuv4Mpeg(FramePointer frame) {
    const AVRational quarter = {encoder_->time_base.num, encoder_->time_base.den * 4};
    if (!last_) firstTime_ = frame->pts;
    const int64_t time = av_rescale_q(frame->pts - firstTime_, sourceTimeBase_, quarter);
    for (; last_ && yuv4MpegFrames_ < (time + 1) / 4; WriteYuv4MpegFrame(*last_)) {
      if (!std::exchange(hasRepeated_, true)) {
        Tell("some frames are repeated, as YUV4MPEG2 knows a fixed rate only");
      }
    }
    WriteYuv4MpegFrame(*frame);
    last_ = std::move(frame);
  }

  static bool HasBareRows(const AVFrame& frame) {
    const int chromaWidth = frame.width / 2;
    return frame.linesize[0] == frame.width && frame.linesize[1] == chromaWidth &&
           frame.linesize[2] == chromaWidth;
  }

  void WriteYuv4MpegFrame(AVFrame& frame) {
    const int64_t number = yuv4MpegFrames_++;
    if (!HasBareRows(frame)) {
      frame.pts = number;
      Encode(frame);
      return;
    }
    // The same bytes as the multiplexer's, which copies each row into its buffer.
    constexpr std::string_view kFrameHeader = "FRAME\n";
    avio_flush(io_.get());
    Check(io_->error, "a frame");
    bytes_->Write(kFrameHeader.data(), kFrameHeader.size());
    const auto pixels = static_cast<size_t>(frame.width) * frame.height;
    const size_t chroma = pixels / (frame.format == AV_PIX_FMT_YUV420P ? 4 : 2);
    bytes_->Write(frame.data[0], pixels);
    bytes_->Write(frame.data[1], chroma);
    bytes_->Write(frame.data[2], chroma);
  }

  // The reason of a failed write is better known than libavformat tells it.
  void Check(int result, const char* what) {
    if (failure_) std::rethrow_exception(failure_);
    if (result < 0) FailToEncode(std::string(what) + " is refused: " + AvErrorText(result));
  }

  [[noreturn]] void FailToEncode(const std::string& reason) const {
    throw Failure(ExitCode::UnwritableOutput, "cannot write " + Quoted(options_.output) + ": " +
                                                  reason +
                                                  "; expected a format and a codec that go "
                                                  "together, see --codec");
  }

  static int WriteBytes(void* opaque, uint8_t* bytes, int count) {
    auto& sink = *static_cast<VideoSink*>(opaque);
    if (sink.isClosed_) return AVERROR(EIO);
    try {
      // On a disk that gets full, writing fails while there is still room for the end. These bytes
      // have theirs already.
      if (!sink.isLast_ && !sink.failure_ && sink.IsMp4()) {
        const int error = sink.bytes_->Reserve(count + sink.BytesToEnd());
        if (error != 0) {
          sink.failure_ = std::make_exception_ptr(WriteFailure(sink.options_.output, error));
        }
      }
      sink.bytes_->Write(bytes, static_cast<size_t>(count));
      sink.pendingBytes_ -= count;
      return count;
    } catch (...) {
      sink.failure_ = std::current_exception();
      sink.isClosed_ = true;
      return AVERROR(EIO);
    }
  }

  static int64_t SeekBytes(void* opaque, int64_t offset, int whence) {
    auto& sink = *static_cast<VideoSink*>(opaque);
    if (sink.isClosed_ || (whence & AVSEEK_SIZE) != 0) return AVERROR(EIO);
    try {
      return sink.bytes_->Seek(offset, whence & ~AVSEEK_FORCE);
    } catch (...) {
      sink.failure_ = std::current_exception();
      sink.isClosed_ = true;
      return AVERROR(EIO);
    }
  }

  struct Sound {
    const AVStream* source;
    AVStream* stream;
    bool isTaken = false, isRefused = false;  // packets of it
  };

  SinkOptions options_;
  AVRational sourceTimeBase_;
  std::unique_ptr<ByteOutput> bytes_;
  std::unique_ptr<AVIOContext, FreeIo> io_;
  std::unique_ptr<AVFormatContext, FreeOutput> muxer_;
  CodecPointer encoder_;
  std::unique_ptr<EncoderConverter> converter_;
  AVStream* stream_ = nullptr;
  std::vector<Sound> sounds_;
  PacketPointer packet_;
  int64_t lastTime_ = INT64_MIN / 2, lastDts_ = INT64_MIN / 2;
  std::exception_ptr failure_;
  bool isYuv4Mpeg_ = false, hasRepeated_ = false;
  FramePointer last_;  // of YUV4MPEG2
  int64_t yuv4MpegFrames_ = 0, firstTime_ = 0;
  bool hasHeader_ = false, isFinished_ = false, isClosed_ = false;
  bool isLast_ = false;       // only the end is still to be written
  int64_t packets_ = 0;       // given to the multiplexer
  int64_t pendingBytes_ = 0;  // of them, not written yet
};

}  // namespace

void CheckVideoFormat(const SinkOptions& options) { Encoder(options, *Format(options)); }

std::unique_ptr<FrameSink> OpenVideoSink(const SinkOptions& options, const MediaShape& shape) {
  return std::make_unique<VideoSink>(options, shape);
}

}  // namespace kolm
