// Frames at the pace at which they are to be seen, read on a thread of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include "tools/kolm/media_source.h"

namespace kolm {

// Videos and sequences begin again at their end, a single picture comes again and again, a camera's
// frames come as they are, and standard input ends with its last frame.
class FrameFeed {
 public:
  // Without an input the built-in sample. Waits for the first frame. Throws Failure.
  explicit FrameFeed(const SourceOptions& options);
  // Ends waiting for input by a stop request.
  ~FrameFeed();
  FrameFeed(const FrameFeed&) = delete;
  FrameFeed& operator=(const FrameFeed&) = delete;

  const MediaShape& Shape() const { return shape_; }

  // The next frame if it is due within `patience`, else null. A camera's frames that nobody took
  // in time are left out; all others wait. Throws Failure when there can be no more.
  FramePointer Take(std::chrono::milliseconds patience);

 private:
  using Clock = std::chrono::steady_clock;

  void Read();
  // One pass from the source's first frame to its last; false when the feed is to end.
  bool ReadToEnd();
  bool OpenAgain();
  bool Put(FramePointer frame, Clock::duration sinceLast);

  SourceOptions options_;
  bool isLive_, canRepeat_;
  std::unique_ptr<FrameSource> source_;
  MediaShape shape_;
  Clock::time_point due_;
  bool hasToldDamage_ = false;

  std::mutex mutex_;
  std::condition_variable changed_;
  FramePointer next_;
  std::exception_ptr failure_;
  bool isEnding_ = false;
  std::thread reader_;
};

}  // namespace kolm
