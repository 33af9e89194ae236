// Fills the module's tracker record and reads it back.
#include "tools/kolm/face_follower.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "tools/kolm/debug_log.h"
#include "tools/kolm/failure.h"

namespace kolm {
namespace {

// Colours that differ in brightness, too.
struct Colour {
  uint8_t y, u, v;
};
constexpr Colour kBoxColour = {210, 16, 146};    // yellow
constexpr Colour kTargetColour = {145, 54, 34};  // green
constexpr Colour kCropColour = {106, 202, 222};  // magenta

struct Canvas {
  uint8_t* frame;
  int width, height;
};

// Fills the part of the rectangle that lies in the frame; columns in whole pixel pairs.
void Fill(const Canvas& canvas, int64_t left, int64_t top, int64_t right, int64_t bottom,
          Colour colour) {
  left = std::max<int64_t>(left, 0) / 2;
  right = (std::min<int64_t>(right, canvas.width) + 1) / 2;
  top = std::max<int64_t>(top, 0);
  bottom = std::min<int64_t>(bottom, canvas.height);
  for (int64_t y = top; y < bottom; ++y) {
    uint8_t* row = canvas.frame + y * canvas.width * 2;
    for (int64_t pair = left; pair < right; ++pair) {
      const uint8_t bytes[] = {colour.y, colour.u, colour.y, colour.v};
      std::memcpy(row + pair * 4, bytes, sizeof bytes);
    }
  }
}

void DrawOutline(const Canvas& canvas, const Box& box, Colour colour, int line) {
  const int64_t x = box[0], y = box[1], right = x + box[2], bottom = y + box[3];
  Fill(canvas, x, y, right, y + line, colour);
  Fill(canvas, x, bottom - line, right, bottom, colour);
  Fill(canvas, x, y, x + line, bottom, colour);
  Fill(canvas, right - line, y, right, bottom, colour);
}

void SetDetectionSize(FaceTracker& tracker, const std::string& text, int frameWidth,
                      int frameHeight) {
  int width = 160, height = 0;
  if (text.empty()) {
    height = std::max(1, (width * frameHeight + frameWidth / 2) / frameWidth);
  } else {
    char rest = 0;
    if (std::sscanf(text.c_str(), "%5dx%5d%c", &width, &height, &rest) != 2 || width < 4 ||
        width % 4 != 0 || height < 1 || width > frameWidth || height > frameHeight) {
      throw Failure(ExitCode::CommandLine,
                    "the detection size '" + text +
                        "' cannot be used; expected WIDTHxHEIGHT, the width a multiple of 4, at "
                        "most the frame's " +
                        std::to_string(frameWidth) + "x" + std::to_string(frameHeight));
    }
  }
  tracker.detectWidth = width;
  tracker.detectHeight = height;
}

}  // namespace

void AddFollowOptions(CLI::App* command, FollowOptions& options) {
  command
      ->add_option("--detect", options.detect,
                   "Size of the picture in which faces are looked for; by default 160 wide, of "
                   "the frame's shape")
      ->type_name("WxH");
  command
      ->add_option("--factor", options.factor,
                   "Step between the sizes of faces that are looked for; by default 1.1")
      ->check(CLI::Range(1.01, 10.0))
      ->type_name("FACTOR");
  command
      ->add_option("--steps", options.steps,
                   "Frames over which the crop moves to a new target; by default 20")
      ->check(CLI::Range(1, 100000))
      ->type_name("N");
  command->add_flag("--reset-when-lost", options.resetWhenLost,
                    "Go back to the whole frame once no face has been seen for a while");
}

FaceFollower::FaceFollower(const FollowOptions& options, int width, int height) {
  tracker_.frameWidth = static_cast<uint32_t>(width);
  tracker_.frameHeight = static_cast<uint32_t>(height);
  SetDetectionSize(tracker_, options.detect, width, height);
  tracker_.scaleFactorMilli = static_cast<uint32_t>(std::lround(options.factor * 1000));
  tracker_.stepCount = options.steps;
  tracker_.stepIndex = static_cast<uint32_t>(options.steps - 1);
  tracker_.cropWidth = tracker_.targetWidth = width;
  tracker_.cropHeight = tracker_.targetHeight = height;
  tracker_.resetWhenLost = options.resetWhenLost;
  Kolm_FT_InitFaceTracking(static_cast<uint32_t>(tracker_.detectWidth),
                           static_cast<uint32_t>(tracker_.detectHeight), &tracker_.faceStorage,
                           &tracker_.detectionImage);
  if (tracker_.detectionImage == nullptr) {
    Kolm_FT_UninitFaceTracking(&tracker_.faceStorage, &tracker_.detectionImage);
    throw Failure(ExitCode::Unexpected,
                  "no face tracker can be had: the module has none, or not enough memory for "
                  "one; expected a version with face tracking");
  }
  ObserveDebugLines([this](const std::string& line) { Observe(line); });
}

FaceFollower::~FaceFollower() {
  ObserveDebugLines([](const std::string&) {});
  Kolm_FT_UninitFaceTracking(&tracker_.faceStorage, &tracker_.detectionImage);
}

void FaceFollower::Follow(const uint8_t* source, uint8_t* result) {
  faces_.reset();
  tracker_.srcFrame = source;
  tracker_.dstFrame = result;
  Kolm_FT_DoFaceTracking(frame_++, &tracker_);
}

Box FaceFollower::Crop() const {
  return {tracker_.cropX, tracker_.cropY, tracker_.cropWidth, tracker_.cropHeight};
}

Box FaceFollower::Target() const {
  return {tracker_.targetX, tracker_.targetY, tracker_.targetWidth, tracker_.targetHeight};
}

// The faces' common box is told by a debugger line alone.
void FaceFollower::Observe(const std::string& line) {
  Box box = {};
  if (std::sscanf(line.c_str(), "YUV16_Face 1........... %d, %d, %d, %d", &box[0], &box[1], &box[2],
                  &box[3]) == 4 &&
      box[2] > 0 && box[3] > 0) {
    faces_ = box;
  }
}

void DrawOutlines(uint8_t* frame, int width, int height, const FaceFollower& follower, int line) {
  const Canvas canvas = {frame, width, height};
  DrawOutline(canvas, follower.Target(), kTargetColour, line);
  DrawOutline(canvas, follower.Crop(), kCropColour, line);
  if (follower.Faces()) DrawOutline(canvas, *follower.Faces(), kBoxColour, line);
}

}  // namespace kolm
