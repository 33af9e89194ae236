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
  int steps = 20;
  bool resetWhenLost = false;
};

// Adds the options; `options` must live as long as `command`.
void AddFollowOptions(CLI::App* command, FollowOptions& options);

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

  // The faces' common box in the last frame.
  const std::optional<Box>& Faces() const { return faces_; }
  Box Target() const;
  Box Crop() const;
  const FaceTracker& Record() const { return tracker_; }

 private:
  void Observe(const std::string& line);

  FaceTracker tracker_ = {};
  uint32_t frame_ = 0;
  std::optional<Box> faces_;
};

// Draws the faces' box, the target and the crop, with lines of `line` pixels.
void DrawOutlines(uint8_t* frame, int width, int height, const FaceFollower& follower, int line);

}  // namespace kolm
