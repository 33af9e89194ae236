// Keeps a tracker's record and reads the debugger lines.
#include "tools/kolm/face_follower.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/kolm/command_line.h"
#include "tools/kolm/debug_log.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/picture_file.h"

namespace kolm {
namespace {

void SetDetectionSize(FaceTracker& tracker, const std::string& wanted, int frameWidth,
                      int frameHeight) {
  int width = 160, height = 0;
  if (wanted.empty()) {
    height = std::max(1, (width * frameHeight + frameWidth / 2) / frameWidth);
  } else {
    char rest = 0;
    if (std::sscanf(wanted.c_str(), "%5dx%5d%c", &width, &height, &rest) != 2 || width < 4 ||
        width % 4 != 0 || height < 1 || width > frameWidth || height > frameHeight) {
      throw Failure(ExitCode::CommandLine,
                    "the detection size '" + wanted +
                        "' cannot be used; expected WIDTHxHEIGHT, the width a multiple of 4, at "
                        "most the frame's " +
                        SizeText(frameWidth, frameHeight));
    }
  }
  tracker.detectWidth = width;
  tracker.detectHeight = height;
}

}  // namespace

void AddFollowOptions(CLI::App* command, FollowOptions& options) {
  command
      ->add_option("--detect", options.detect,
                   "Size of the picture in which faces of 24 x 24 pixels and more are looked for; "
                   "by default 160 wide, of the frame's shape. Faces get a margin of 20 of its "
                   "pixels")
      ->type_name("WxH");
  command
      ->add_option("--factor", options.factor,
                   "Step between the sizes of faces that are looked for; by default 1.1")
      ->check(NumberFrom(1.01, 10.0))
      ->type_name("FACTOR");
  command
      ->add_option("--steps", options.steps,
                   "Frames over which the crop moves to a new target; by default 10. More make a "
                   "calmer picture, fewer one that keeps closer to the faces")
      ->check(NumberFrom(1, 100000))
      ->type_name("N");
  command->add_flag("--reset-when-lost", options.resetWhenLost,
                    "Go back to the whole frame when no face has been seen for N frames; otherwise "
                    "the last place is shown on and on");
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
    throw Failure(ExitCode::Unexpected, "there is not enough memory for a face tracker");
  }
  // The faces' box is told by a debugger line alone.
  ObserveDebugLines([this](const std::string& line) {
    Box box = {};
    if (std::sscanf(line.c_str(), "YUV16_Face 1........... %d, %d, %d, %d", &box[0], &box[1],
                    &box[2], &box[3]) == 4 &&
        box[2] > 0 && box[3] > 0) {
      view_.faces = box;
    }
  });
}

FaceFollower::~FaceFollower() {
  ObserveDebugLines([](const std::string&) {});
  Kolm_FT_UninitFaceTracking(&tracker_.faceStorage, &tracker_.detectionImage);
}

void FaceFollower::Follow(const uint8_t* source, uint8_t* result) {
  const Box whole = {0, 0, static_cast<int>(tracker_.frameWidth),
                     static_cast<int>(tracker_.frameHeight)};
  const bool wasSettled = tracker_.stepIndex + 1 >= static_cast<uint32_t>(tracker_.stepCount);
  view_.faces.reset();
  tracker_.srcFrame = source;
  tracker_.dstFrame = result;
  Kolm_FT_DoFaceTracking(frame_++, &tracker_);
  view_.target = {tracker_.targetX, tracker_.targetY, tracker_.targetWidth, tracker_.targetHeight};
  // A frame that is copied leaves the crop one step short of the whole.
  const bool isCopy = wasSettled && !view_.faces && view_.target == whole;
  view_.shown =
      isCopy ? whole : Box{tracker_.cropX, tracker_.cropY, tracker_.cropWidth, tracker_.cropHeight};
}

}  // namespace kolm
