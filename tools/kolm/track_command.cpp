// kolm track: follows faces through a video.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "tools/kolm/commands.h"
#include "tools/kolm/face_follower.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/pipeline.h"

namespace kolm {
namespace {

struct TrackOptions : MediaArguments, FollowOptions {
  std::string trace;
  bool overlay = false;
};

std::string Json(const Box& box) {
  std::ostringstream text;
  text << '[' << box[0] << ',' << box[1] << ',' << box[2] << ',' << box[3] << ']';
  return text.str();
}

// A follower and what is written of it.
class Tracker {
 public:
  Tracker(const TrackOptions& options, const MediaShape& shape)
      : options_(options),
        follower_(options, shape.width, shape.height),
        results_(shape.width, shape.height, AV_PIX_FMT_YUYV422, 1),
        trace_(options.trace.empty()
                   ? nullptr
                   : std::make_unique<NewFile>(options.trace, options.overwrite)) {}

  FramePointer Follow(FramePointer source) {
    FramePointer result = results_.Get();
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    follower_.Follow(source->data[0], result->data[0]);
    const auto time =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count();
    if (trace_) WriteTrace(time);
    ++frame_;
    if (!options_.overlay) return result;

    std::memcpy(result->data[0], source->data[0],
                static_cast<size_t>(source->linesize[0]) * source->height);
    constexpr int kLine = 2;
    DrawOutlines(result->data[0], result->width, result->height, follower_, kLine);
    return result;
  }

  void Finish() {
    if (trace_) trace_->Finish();
  }

 private:
  void WriteTrace(int64_t microseconds) {
    const std::optional<Box>& box = follower_.Faces();
    std::ostringstream line;
    line << "{\"frame\":" << frame_ << ",\"box\":" << (box ? Json(*box) : "null")
         << ",\"target\":" << Json(follower_.Target()) << ",\"crop\":" << Json(follower_.Crop())
         << ",\"stepIndex\":" << follower_.Record().stepIndex
         << ",\"missCount\":" << follower_.Record().missCount
         << ",\"microseconds\":" << microseconds << "}\n";
    trace_->Write(line.str().data(), line.str().size());
  }

  const TrackOptions& options_;
  FaceFollower follower_;
  FramePool results_;
  std::unique_ptr<NewFile> trace_;
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
  AddFollowOptions(command, *options);
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
