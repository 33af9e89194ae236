// The module's face tracker on a stream of frames, and what it tells of each.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "module/kolm.h"

namespace CLI {
class App;
}

namespace kolm {

using Box = std::array<int, 4>;  // x, y, width, height: frame pixels

struct FollowOptions {
  std::string detect;
  double factor = 1.1;
  int steps = 10;
  bool resetWhenLost = false;
};

// Adds the options; `options` must live as long as `command`.
void AddFollowOptions(CLI::App* command, FollowOptions& options);

// What the tracker made of a frame.
struct FaceView {
  std::optional<Box> faces;  // all that were found, as one box with its margin
  Box target;                // where the crop is moving to
  Box shown;                 // the part that the result shows
};

// One at a time: it listens to the module's debugger lines.
class FaceFollower {
 public:
  // Throws Failure.
  FaceFollower(const FollowOptions& options, int width, int height);
  ~FaceFollower();
  FaceFollower(const FaceFollower&) = delete;
  FaceFollower& operator=(const FaceFollower&) = delete;

  // Both are packed frames without padding.
  void Follow(const uint8_t* source, uint8_t* result);

  // Of the last frame.
  const FaceView& View() const { return view_; }
  const FaceTracker& Record() const { return tracker_; }

 private:
  FaceTracker tracker_ = {};
  uint32_t frame_ = 0;
  FaceView view_ = {};
};

}  // namespace kolm
