// Reads packed frames straight into the memory that the module reads.
#include "tools/kolm/raw_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/kolm/failure.h"
#include "tools/kolm/frame_conversion.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/progress.h"
#include "tools/kolm/stop_request.h"

namespace kolm {
namespace {

class RawSource : public FrameSource {
 public:
  RawSource(int file, std::string start, const SourceOptions& options)
      : file_(file),
        name_(InputName(options)),
        start_(std::move(start)),
        isOdd_(options.width % 2 != 0),
        read_(options.width + (isOdd_ ? 1 : 0), options.height, AV_PIX_FMT_YUYV422, 1),
        packed_(options.width - (isOdd_ ? 1 : 0), options.height) {
    shape_.width = options.width - (isOdd_ ? 1 : 0);
    shape_.height = options.height;
    if (options.rate.num > 0) shape_.rate = options.rate;
    shape_.timeBase = av_inv_q(shape_.rate);
    shape_.isRaw = true;
    // Fewer turns between this and the program before it in a pipe.
    constexpr int kPipeBytes = 1 << 20;
    fcntl(file_, F_SETPIPE_SZ, kPipeBytes);
    struct stat status;
    const int64_t frameBytes = int64_t{options.width + (isOdd_ ? 1 : 0)} * 2 * options.height;
    if (fstat(file_, &status) == 0 && S_ISREG(status.st_mode)) {
      shape_.frames = status.st_size / frameBytes;
    }
    if (isOdd_) {
      Tell(name_ + " is " + std::to_string(options.width) +
           " pixels wide; its last column is left out, as widths are even");
    }
    first_ = Read();
    if (!first_) {
      if (StopRequested()) throw Failure(ExitCode::Stopped, "stopped before the first frame");
      throw Failure(ExitCode::UnreadablePicture,
                    "cannot read " + name_ + ": " + (damage_.empty() ? "it is empty" : damage_) +
                        "; expected frames of " + std::to_string(frameBytes) + " bytes");
    }
  }
  ~RawSource() override { close(file_); }
  RawSource(const RawSource&) = delete;
  RawSource& operator=(const RawSource&) = delete;

  bool Next(MediaItem& item) override {
    item.frame = first_ ? std::move(first_) : Read();
    return item.frame != nullptr;
  }

 private:
  // Null at the end.
  FramePointer Read() {
    FramePointer frame = read_.Get();
    const size_t bytes = static_cast<size_t>(frame->linesize[0]) * frame->height;
    size_t size = std::min(bytes, start_.size());
    std::memcpy(frame->data[0], start_.data(), size);
    start_.erase(0, size);
    while (size < bytes) {
      WaitForInput(file_);
      if (StopRequested()) return nullptr;
      const ssize_t count = read(file_, frame->data[0] + size, bytes - size);
      if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (count < 0) damage_ = std::strerror(errno);
      if (count == 0 && size > 0) {
        damage_ = "it ends within a frame, after " + std::to_string(size) + " of " +
                  std::to_string(bytes) + " bytes";
      }
      if (count <= 0) return nullptr;
      size += static_cast<size_t>(count);
    }
    frame->pts = next_++;
    return isOdd_ ? WithoutLastColumn(std::move(frame)) : std::move(frame);
  }

  FramePointer WithoutLastColumn(FramePointer frame) {
    frame->width = shape_.width;
    return packed_.Convert(std::move(frame));
  }

  int file_;
  std::string name_;
  std::string start_;
  bool isOdd_;
  FramePool read_;
  PackedConverter packed_;
  FramePointer first_;
  int64_t next_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> OpenRawSource(int file, const std::string& start,
                                           const SourceOptions& options) {
  CheckSmallest("a frame", options.width, options.height);
  CheckLargest("a frame", options.width, options.height);
  return std::make_unique<RawSource>(file, start, options);
}

}  // namespace kolm
