// Reads, waits until a frame is due and hands it over.
#include "tools/kolm/frame_feed.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <new>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tools/kolm/failure.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/progress.h"
#include "tools/kolm/sample_scene.h"
#include "tools/kolm/stop_request.h"

namespace kolm {
namespace {

class SampleSource : public FrameSource {
 public:
  SampleSource() {
    const cv::Mat picture = DrawSampleScene();
    const std::vector<uint8_t> bytes = PackedFromPicture(picture);
    shape_.width = picture.cols;
    shape_.height = picture.rows;
    frame_ = FramePool(picture.cols, picture.rows, AV_PIX_FMT_YUYV422, 1).Get();
    frame_->pts = 0;
    std::memcpy(frame_->data[0], bytes.data(), bytes.size());
  }

  bool Next(MediaItem& item) override {
    item.frame = std::move(frame_);
    return item.frame != nullptr;
  }

 private:
  FramePointer frame_;
};

// Another reference to the same pixels.
FramePointer Share(const AVFrame& frame) {
  FramePointer shared(av_frame_clone(&frame));
  if (!shared) throw std::bad_alloc();
  return shared;
}

std::chrono::nanoseconds Seconds(AVRational seconds, int64_t count) {
  return std::chrono::nanoseconds(av_rescale_q(count, seconds, {1, 1'000'000'000}));
}

}  // namespace

FrameFeed::FrameFeed(const SourceOptions& options)
    : options_(options),
      isLive_(std::regex_match(options.input, std::regex("/dev/video[0-9]+"))),
      canRepeat_(std::filesystem::is_regular_file(options.input) || IsNumberedName(options.input)),
      source_(options.input.empty() ? std::make_unique<SampleSource>() : OpenSource(options)),
      shape_(source_->Shape()),
      due_(Clock::now()) {
  if (options.input.empty() && options.rate.num > 0) shape_.rate = options.rate;
  // These do not live beyond the first pass.
  shape_.container = nullptr;
  shape_.picture = nullptr;
  shape_.sounds.clear();
  reader_ = std::thread([this] { Read(); });
}

FrameFeed::~FrameFeed() {
  RequestStop();
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  changed_.notify_all();
  reader_.join();
}

FramePointer FrameFeed::Take(std::chrono::milliseconds patience) {
  FramePointer taken;
  {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, patience, [this] { return next_ || failure_; });
    if (!next_ && failure_) std::rethrow_exception(failure_);
    taken = std::move(next_);
  }
  changed_.notify_all();
  return taken;
}

void FrameFeed::Read() {
  try {
    while (ReadToEnd() && OpenAgain()) {
    }
  } catch (...) {
    const std::lock_guard lock(mutex_);
    failure_ = std::current_exception();
  }
}

bool FrameFeed::ReadToEnd() {
  const Clock::duration frameTime = Seconds(av_inv_q(shape_.rate), 1);
  constexpr Clock::duration kLongestFrame = std::chrono::seconds(10);
  FramePointer last;
  int64_t count = 0;
  MediaItem item;
  while (source_->Next(item)) {
    if (!item.frame) continue;
    const Clock::duration sinceLast =
        last ? std::clamp<Clock::duration>(Seconds(shape_.timeBase, item.frame->pts - last->pts),
                                           Clock::duration(0), kLongestFrame)
             : frameTime;
    last = Share(*item.frame);
    ++count;
    if (!Put(std::move(item.frame), sinceLast)) return false;
  }
  if (StopRequested()) return false;
  const std::string name = options_.input == "-" ? "standard input" : Quoted(options_.input);
  const std::string& damage = source_->Damage();
  if (isLive_ || count == 0) {
    throw Failure(ExitCode::BrokenInput,
                  name + " gives no more frames" + (damage.empty() ? "" : ": " + damage));
  }
  if (!damage.empty() && !std::exchange(hasToldDamage_, true))
    Tell(name + " is damaged: " + damage);
  while (count == 1 && Put(Share(*last), frameTime)) {
  }
  return count > 1;
}

bool FrameFeed::OpenAgain() {
  if (!canRepeat_) {
    Tell("the input has ended; its last frame stays");
    return false;
  }
  source_.reset();
  source_ = OpenSource(options_);
  const MediaShape& shape = source_->Shape();
  if (shape.width != shape_.width || shape.height != shape_.height) {
    throw Failure(ExitCode::PictureSize,
                  Quoted(options_.input) + " has become another, of another size");
  }
  return true;
}

bool FrameFeed::Put(FramePointer frame, Clock::duration sinceLast) {
  // What comes late, for instance after a pause, does not make what follows come early.
  constexpr Clock::duration kTolerance = std::chrono::milliseconds(100);
  std::unique_lock lock(mutex_);
  due_ += sinceLast;
  if (due_ < Clock::now() - kTolerance) due_ = Clock::now();
  const auto isEnding = [this] { return isEnding_; };
  if (!isLive_ && !changed_.wait_until(lock, due_, isEnding)) {
    changed_.wait(lock, [this] { return isEnding_ || !next_; });
  }
  if (isEnding_) return false;
  next_ = std::move(frame);
  lock.unlock();
  changed_.notify_all();
  return true;
}

}  // namespace kolm
