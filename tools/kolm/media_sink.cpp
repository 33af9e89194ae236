// Chooses among the kinds of sinks by name.
#include "tools/kolm/media_sink.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/kolm/byte_output.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/media_source.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/video_sink.h"

namespace kolm {
namespace {

// One picture, or a numbered sequence of them.
class PictureSink : public FrameSink {
 public:
  explicit PictureSink(const SinkOptions& options)
      : options_(options), isSequence_(IsNumberedName(options.output)) {}

  void Write(MediaItem item) override {
    if (!item.frame) return;
    if (!isSequence_ && isWritten_) {
      FailToWrite(options_.output, "the input has more than one frame, the output is one picture",
                  "a video's name, or one with a place for a number, such as out-%04d.png");
    }
    const AVFrame& frame = *item.frame;
    const std::vector<uint8_t> bytes(
        frame.data[0], frame.data[0] + static_cast<size_t>(frame.linesize[0]) * frame.height);
    cv::Mat picture = PictureFromPacked(bytes, {frame.width, frame.height});
    if (isSequence_) {
      ++count_;
      WritePicture(picture, Name(item.number.value_or(count_)), options_.overwrite);
    } else {
      picture_ = std::move(picture);
    }
    isWritten_ = true;
  }

  void Finish() override {
    if (!isSequence_) WritePicture(picture_, options_.output, options_.overwrite);
  }

  std::string FinishAsPart() override {
    return isSequence_ && isWritten_ ? "the pictures before it are there" : "";
  }

 private:
  std::filesystem::path Name(int number) const {
    char name[4096];
    const std::filesystem::path pattern = options_.output;
    if (av_get_frame_filename2(name, sizeof name, pattern.filename().c_str(), number, 0) < 0) {
      FailToWrite(pattern, "its name has no single place for a number",
                  "a name such as out-%04d.png");
    }
    return pattern.parent_path() / name;
  }

  SinkOptions options_;
  bool isSequence_;
  int count_ = 0;
  bool isWritten_ = false;
  cv::Mat picture_;
};

// Packed frames, one behind the other.
class RawSink : public FrameSink {
 public:
  explicit RawSink(const SinkOptions& options)
      : output_(OpenByteOutput(options.output, options.overwrite)) {}

  void Write(MediaItem item) override {
    if (!item.frame) return;
    const AVFrame& frame = *item.frame;
    output_->Write(frame.data[0], static_cast<size_t>(frame.linesize[0]) * frame.height);
  }
  void Finish() override { output_->Finish(); }
  std::string FinishAsPart() override {
    const std::filesystem::path part = output_->KeepPart();
    return part.empty() ? "" : WhereText(part);
  }

 private:
  std::unique_ptr<ByteOutput> output_;
};

bool IsRawName(const SinkOptions& options) {
  const std::string extension = std::filesystem::path(options.output).extension().string();
  return options.format == "rawvideo" ||
         (options.format.empty() && options.output != "-" && extension == ".yuv");
}

}  // namespace

void CheckSink(const SinkOptions& options) {
  if (options.output != "-") {
    CheckPlace(options.output, true);
    if (!IsPictureName(options.output) && !IsRawName(options)) CheckVideoFormat(options);
    CheckPlace(options.output, options.overwrite);
    return;
  }
  if (isatty(STDOUT_FILENO) != 0) {
    throw Failure(ExitCode::UnwritableOutput,
                  "cannot write frames to a terminal; expected the standard output redirected to a "
                  "program or file");
  }
  if (!options.format.empty() && options.format != "rawvideo") CheckVideoFormat(options);
}

std::unique_ptr<FrameSink> OpenSink(const SinkOptions& options, const MediaShape& shape) {
  if (options.format.empty() && IsPictureName(options.output)) {
    return std::make_unique<PictureSink>(options);
  }
  SinkOptions chosen = options;
  if (options.output == "-" && options.format.empty()) {
    chosen.format = shape.isRaw ? "rawvideo" : "yuv4mpegpipe";
  }
  if (IsRawName(chosen) && chosen.codec.empty()) return std::make_unique<RawSink>(chosen);
  return OpenVideoSink(chosen, shape);
}

}  // namespace kolm
