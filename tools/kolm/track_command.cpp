// kolm track: follows faces through a video.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "module/kolm.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/debug_log.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/pipeline.h"

namespace kolm {
namespace {

using Box = std::array<int, 4>;  // x, y, width, height

struct TrackOptions : MediaArguments {
  std::string detect, trace;
  double factor = 1.1;
  int steps = 20;
  bool resetWhenLost = false, overlay = false;
};

// Colours that differ in brightness, too.
struct Colour {
  uint8_t y, u, v;
};
constexpr Colour kBoxColour = {210, 16, 146};    // yellow
constexpr Colour kTargetColour = {145, 54, 34};  // green
constexpr Colour kCropColour = {106, 202, 222};  // magenta

// Fills the part of the rectangle that lies in the frame; columns in whole pixel pairs.
void Fill(AVFrame& frame, int64_t left, int64_t top, int64_t right, int64_t bottom, Colour colour) {
  left = std::max<int64_t>(left, 0) / 2;
  right = (std::min<int64_t>(right, frame.width) + 1) / 2;
  top = std::max<int64_t>(top, 0);
  bottom = std::min<int64_t>(bottom, frame.height);
  for (int64_t y = top; y < bottom; ++y) {
    uint8_t* row = frame.data[0] + y * frame.linesize[0];
    for (int64_t pair = left; pair < right; ++pair) {
      const uint8_t bytes[] = {colour.y, colour.u, colour.y, colour.v};
      std::memcpy(row + pair * 4, bytes, sizeof bytes);
    }
  }
}

void DrawOutline(AVFrame& frame, const Box& box, Colour colour) {
  const int64_t x = box[0], y = box[1], right = x + box[2], bottom = y + box[3];
  constexpr int64_t kLine = 2;
  Fill(frame, x, y, right, y + kLine, colour);
  Fill(frame, x, bottom - kLine, right, bottom, colour);
  Fill(frame, x, y, x + kLine, bottom, colour);
  Fill(frame, right - kLine, y, right, bottom, colour);
}

std::string Json(const Box& box) {
  std::ostringstream text;
  text << '[' << box[0] << ',' << box[1] << ',' << box[2] << ',' << box[3] << ']';
  return text.str();
}

// A tracker and what is known of its last frame.
class Tracker {
 public:
  Tracker(const TrackOptions& options, const MediaShape& shape)
      : options_(options),
        results_(shape.width, shape.height, AV_PIX_FMT_YUYV422, 1),
        trace_(options.trace.empty()
                   ? nullptr
                   : std::make_unique<NewFile>(options.trace, options.overwrite)) {
    tracker_.frameWidth = static_cast<uint32_t>(shape.width);
    tracker_.frameHeight = static_cast<uint32_t>(shape.height);
    SetDetectionSize(shape);
    tracker_.scaleFactorMilli = static_cast<uint32_t>(std::lround(options.factor * 1000));
    tracker_.stepCount = options.steps;
    tracker_.stepIndex = static_cast<uint32_t>(options.steps - 1);
    tracker_.cropWidth = tracker_.targetWidth = shape.width;
    tracker_.cropHeight = tracker_.targetHeight = shape.height;
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
  ~Tracker() {
    ObserveDebugLines([](const std::string&) {});
    Kolm_FT_UninitFaceTracking(&tracker_.faceStorage, &tracker_.detectionImage);
  }
  Tracker(const Tracker&) = delete;
  Tracker& operator=(const Tracker&) = delete;

  FramePointer Follow(FramePointer source) {
    FramePointer result = results_.Get();
    box_.reset();
    tracker_.srcFrame = source->data[0];
    tracker_.dstFrame = result->data[0];
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    Kolm_FT_DoFaceTracking(static_cast<uint32_t>(frame_), &tracker_);
    const auto time =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count();
    if (trace_) WriteTrace(time);
    ++frame_;
    if (!options_.overlay) return result;

    std::memcpy(result->data[0], source->data[0],
                static_cast<size_t>(source->linesize[0]) * source->height);
    DrawOutline(*result, Target(), kTargetColour);
    DrawOutline(*result, Crop(), kCropColour);
    if (box_) DrawOutline(*result, *box_, kBoxColour);
    return result;
  }

  void Finish() {
    if (trace_) trace_->Finish();
  }

 private:
  Box Crop() const {
    return {tracker_.cropX, tracker_.cropY, tracker_.cropWidth, tracker_.cropHeight};
  }
  Box Target() const {
    return {tracker_.targetX, tracker_.targetY, tracker_.targetWidth, tracker_.targetHeight};
  }

  void SetDetectionSize(const MediaShape& shape) {
    int width = 160, height = 0;
    if (options_.detect.empty()) {
      height = std::max(1, (width * shape.height + shape.width / 2) / shape.width);
    } else {
      char rest = 0;
      if (std::sscanf(options_.detect.c_str(), "%5dx%5d%c", &width, &height, &rest) != 2 ||
          width < 4 || width % 4 != 0 || height < 1 || width > shape.width ||
          height > shape.height) {
        throw Failure(ExitCode::CommandLine,
                      "the detection size '" + options_.detect +
                          "' cannot be used; expected WIDTHxHEIGHT, the width a multiple of 4, at "
                          "most the frame's " +
                          std::to_string(shape.width) + "x" + std::to_string(shape.height));
      }
    }
    tracker_.detectWidth = width;
    tracker_.detectHeight = height;
  }

  // The faces' common box is told by a debugger line alone.
  void Observe(const std::string& line) {
    Box box = {};
    if (std::sscanf(line.c_str(), "YUV16_Face 1........... %d, %d, %d, %d", &box[0], &box[1],
                    &box[2], &box[3]) == 4 &&
        box[2] > 0 && box[3] > 0) {
      box_ = box;
    }
  }

  void WriteTrace(int64_t microseconds) {
    std::ostringstream line;
    line << "{\"frame\":" << frame_ << ",\"box\":" << (box_ ? Json(*box_) : "null")
         << ",\"target\":" << Json(Target()) << ",\"crop\":" << Json(Crop())
         << ",\"stepIndex\":" << tracker_.stepIndex << ",\"missCount\":" << tracker_.missCount
         << ",\"microseconds\":" << microseconds << "}\n";
    trace_->Write(line.str().data(), line.str().size());
  }

  const TrackOptions& options_;
  FaceTracker tracker_ = {};
  FramePool results_;
  std::unique_ptr<NewFile> trace_;
  std::optional<Box> box_;
  int64_t frame_ = 0;
};

void Track(const TrackOptions& options) {
  std::shared_ptr<Tracker> tracker;
  if (!options.trace.empty()) CheckPlace(options.trace, options.overwrite);
  try {
    ProcessMedia(options, [&](const MediaShape& shape) -> FrameWork {
      tracker = std::make_shared<Tracker>(options, shape);
      return [tracker](FramePointer frame) { return tracker->Follow(std::move(frame)); };
    });
  } catch (const Failure& failure) {
    // Then the output has been finished as well.
    if (failure.code == ExitCode::Stopped || failure.code == ExitCode::BrokenInput) {
      if (tracker) tracker->Finish();
    }
    throw;
  }
  tracker->Finish();
}

}  // namespace

void AddTrackCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<TrackOptions>();
  CLI::App* command = app.add_subcommand("track", "Follow faces: crop, pan and zoom onto them");
  command
      ->add_option("--detect", options->detect,
                   "Size of the picture in which faces are looked for; by default 160 wide, of "
                   "the frame's shape")
      ->type_name("WxH");
  command
      ->add_option("--factor", options->factor,
                   "Step between the sizes of faces that are looked for; by default 1.1")
      ->check(CLI::Range(1.01, 10.0))
      ->type_name("FACTOR");
  command
      ->add_option("--steps", options->steps,
                   "Frames over which the crop moves to a new target; by default 20")
      ->check(CLI::Range(1, 100000))
      ->type_name("N");
  command->add_flag("--reset-when-lost", options->resetWhenLost,
                    "Go back to the whole frame once no face has been seen for a while");
  command->add_flag("--overlay", options->overlay,
                    "Write the source with outlines instead: the faces' box in yellow, the "
                    "target in green, the crop in magenta");
  command
      ->add_option("--trace", options->trace,
                   "Also write a line of JSON for each frame: its number, box (null without a "
                   "face), target, crop, stepIndex, missCount and the microseconds it took")
      ->type_name("FILE");
  AddMediaArguments(command, *options);
  command->footer(std::string(kAboutMedia) +
                  "\n\nExamples:\n  kolm track talk.mp4 close.mp4\n  kolm track --overlay --trace "
                  "talk.jsonl --steps 10 /dev/video0 tracked.mkv");
  command->callback([&work, options] { work = [options] { Track(*options); }; });
}

}  // namespace kolm
