// Chooses among the kinds of sources by name and by the first bytes.
#include "tools/kolm/media_source.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <regex>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/kolm/failure.h"
#include "tools/kolm/frame_conversion.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/progress.h"
#include "tools/kolm/raw_source.h"
#include "tools/kolm/stop_request.h"
#include "tools/kolm/video_source.h"

namespace kolm {
namespace {

const std::regex kNumberField("%(0[0-9]*|[1-9][0-9]*)?d");

struct NumberedPath {
  int number;
  std::filesystem::path path;

  bool operator<(const NumberedPath& other) const { return number < other.number; }
};

// Picture files, one a frame. Those that cannot be read are left out.
class PictureSource : public FrameSource {
 public:
  PictureSource(std::vector<NumberedPath> pictures, const SourceOptions& options)
      : pictures_(std::move(pictures)) {
    if (options.rate.num > 0) shape_.rate = options.rate;
    shape_.timeBase = av_inv_q(shape_.rate);
    shape_.frames = static_cast<int64_t>(pictures_.size());
    first_ = ReadFirst();
    shape_.width = first_.cols;
    shape_.height = first_.rows;
  }

  bool Next(MediaItem& item) override {
    cv::Mat picture;
    while (picture.empty()) {
      if (next_ == pictures_.size() || StopRequested()) return false;
      const NumberedPath& path = pictures_[next_++];
      item.number = path.number;
      name_ = Quoted(path.path);
      try {
        picture = first_.empty() ? ReadPicture(path.path) : std::exchange(first_, {});
      } catch (const Failure& failure) {
        damage_ = failure.what();
      }
    }
    item.frame = NewFrame();
    AVFrame& frame = *item.frame;
    frame.width = picture.cols;
    frame.height = picture.rows;
    frame.format = AV_PIX_FMT_YUYV422;
    auto bytes = std::make_unique<std::vector<uint8_t>>(PackedFromPicture(picture));
    frame.buf[0] = av_buffer_create(
        bytes->data(), bytes->size(),
        [](void* opaque, uint8_t*) { delete static_cast<std::vector<uint8_t>*>(opaque); },
        bytes.get(), 0);
    if (frame.buf[0] == nullptr) throw std::bad_alloc();
    frame.data[0] = bytes.release()->data();
    frame.linesize[0] = picture.cols * 2;
    if (picture.cols != shape_.width || picture.rows != shape_.height) {
      item.frame = Fitted(std::move(item.frame));
    }
    item.frame->pts = time_++;
    return true;
  }

 private:
  // Those before it are left out.
  cv::Mat ReadFirst() {
    for (; next_ + 1 < pictures_.size(); ++next_) {
      try {
        return ReadPicture(pictures_[next_].path);
      } catch (const Failure& failure) {
        damage_ = failure.what();
      }
    }
    return ReadPicture(pictures_[next_].path);
  }

  FramePointer Fitted(FramePointer frame) {
    Tell(name_ + " is scaled from " + SizeText(frame->width, frame->height) +
         " to the first picture's " + SizeText(shape_.width, shape_.height));
    if (!converter_) converter_ = std::make_unique<PackedConverter>(shape_.width, shape_.height);
    return converter_->Convert(std::move(frame));
  }

  std::vector<NumberedPath> pictures_;
  size_t next_ = 0;
  int64_t time_ = 0;
  std::string name_;  // of the picture that is read
  cv::Mat first_;
  std::unique_ptr<PackedConverter> converter_;
};

// The files that a numbered name stands for, in the order of their numbers.
std::unique_ptr<FrameSource> OpenSequence(const SourceOptions& options) {
  const std::filesystem::path pattern = options.input;
  const std::filesystem::path folder = pattern.has_parent_path() ? pattern.parent_path() : ".";
  const std::string name = pattern.filename().string();
  std::smatch field;
  std::regex_search(name, field, kNumberField);
  const std::string before = field.prefix(), after = field.suffix();
  std::vector<NumberedPath> found;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; entry != end;
       entry.increment(error)) {
    const std::string candidate = entry->path().filename().string();
    if (candidate.size() <= before.size() + after.size()) continue;
    const std::string digits =
        candidate.substr(before.size(), candidate.size() - before.size() - after.size());
    char expanded[1024];
    if (digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) continue;
    const int number = std::stoi(digits);
    if (av_get_frame_filename2(expanded, sizeof expanded, name.c_str(), number, 0) == 0 &&
        candidate == expanded) {
      found.push_back({number, pattern.has_parent_path() ? folder / candidate
                                                         : std::filesystem::path(candidate)});
    }
  }
  if (error || found.empty()) {
    throw Failure(ExitCode::UnreadablePicture,
                  "cannot read " + Quoted(options.input) + ": " +
                      (error ? error.message() : "there is no picture of such a name") +
                      "; expected numbered picture files");
  }
  std::sort(found.begin(), found.end());
  const int first = found[0].number, last = found.back().number;
  if (const int missing = last - first + 1 - static_cast<int>(found.size()); missing > 0) {
    Tell(Quoted(options.input) + " lacks " + std::to_string(missing) + " of the pictures from " +
         std::to_string(first) + " to " + std::to_string(last) +
         "; in a video the others follow one another");
  }
  return std::make_unique<PictureSource>(std::move(found), options);
}

[[noreturn]] void FailToRead(const SourceOptions& options, const std::string& reason) {
  throw Failure(ExitCode::UnreadablePicture,
                "cannot read " + InputName(options) + ": " + reason +
                    "; expected a picture, a video, a device such as /dev/video0, or - for "
                    "standard input");
}

// Takes over the file, which cannot be read twice.
std::unique_ptr<FrameSource> OpenStream(int file, const SourceOptions& options) {
  constexpr std::string_view kMagic = "YUV4MPEG2";
  std::string start(kMagic.size(), '\0');
  size_t size = 0;
  while (size < start.size()) {
    WaitForInput(file);
    if (StopRequested()) throw Failure(ExitCode::Stopped, "stopped before the first frame");
    const ssize_t count = read(file, &start[size], start.size() - size);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count < 0) FailToRead(options, std::strerror(errno));
    if (count == 0) break;
    size += static_cast<size_t>(count);
  }
  start.resize(size);
  if (start.empty()) FailToRead(options, "it is empty");
  if (options.width > 0 && start != kMagic) return OpenRawSource(file, start, options);
  return OpenVideoStream(file, start, options);
}

// Whether the name tells of a video with a header, which is no file of raw frames.
bool HasVideoName(const std::string& name) {
  const AVOutputFormat* format = av_guess_format(nullptr, name.c_str(), nullptr);
  return format != nullptr && format->video_codec != AV_CODEC_ID_NONE &&
         std::strcmp(format->name, "rawvideo") != 0;
}

bool HasRawName(const std::string& name) {
  return strcasecmp(std::filesystem::path(name).extension().c_str(), ".yuv") == 0;
}

}  // namespace

bool IsNumberedName(const std::string& name) {
  return std::regex_search(std::filesystem::path(name).filename().string(), kNumberField);
}

std::string InputPath(const std::string& input) { return input == "-" ? "/dev/stdin" : input; }

std::string InputName(const SourceOptions& options) {
  return options.input == "-" ? "standard input" : Quoted(options.input);
}

std::unique_ptr<FrameSource> OpenSource(const SourceOptions& options) {
  if (options.input == "-") return OpenStream(STDIN_FILENO, options);
  if (std::regex_match(options.input, std::regex("/dev/video[0-9]+"))) return OpenDevice(options);
  struct stat status;
  const bool exists = stat(options.input.c_str(), &status) == 0;
  if (!exists && IsNumberedName(options.input)) return OpenSequence(options);
  if (!exists) FailToRead(options, std::strerror(errno));
  if (S_ISDIR(status.st_mode)) FailToRead(options, "it is a directory");
  const bool isFile = S_ISREG(status.st_mode);
  if (isFile && IsPicture(options.input)) {
    if (options.width > 0) {
      Tell(InputName(options) + " is a picture, which tells its size itself: -s is left aside");
    }
    return std::make_unique<PictureSource>(std::vector<NumberedPath>{{1, options.input}}, options);
  }
  if (isFile && status.st_size == 0) FailToRead(options, "it is empty");
  const bool isRaw = options.width > 0 && !HasVideoName(options.input);
  if (isFile && !isRaw) {
    if (HasRawName(options.input)) {
      FailToRead(options, "it holds raw frames, which do not tell their size (give -s WxH)");
    }
    return OpenVideo(options);
  }
  // Waits for the other end of a named pipe where a signal can end the wait.
  const int file = open(options.input.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) FailToRead(options, std::strerror(errno));
  return isFile ? OpenRawSource(file, "", options) : OpenStream(file, options);
}

}  // namespace kolm
