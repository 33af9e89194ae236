// kolm track: follows faces through a video.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "tools/kolm/byte_output.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/face_follower.h"
#include "tools/kolm/face_outlines.h"
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

// The tracker's results, as frames and as lines of the trace.
class Tracker {
 public:
  Tracker(const TrackOptions& options, const MediaShape& shape)
      : options_(options),
        results_(shape.width, shape.height, AV_PIX_FMT_YUYV422, 1),
        trace_(options.trace.empty() ? nullptr : OpenByteOutput(options.trace, options.overwrite)),
        follower_(options, shape.width, shape.height) {}

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
    DrawOutlines(result->data[0], result->width, result->height, follower_.View(),
                 std::max(2, result->width / 200));
    return result;
  }

  void Finish() {
    if (!trace_) return;
    try {
      trace_->Finish();
    } catch (const Failure& failure) {
      throw Failure(failure.code, failure.what() + FinishAsPart());
    }
  }

  // Instead of Finish, once something has failed: the text tells where the trace is.
  std::string FinishAsPart() {
    const std::filesystem::path part = trace_ ? trace_->KeepPart() : std::filesystem::path();
    return part.empty() ? "" : "; its trace is in " + Quoted(part);
  }

 private:
  void WriteTrace(int64_t microseconds) {
    const FaceView& view = follower_.View();
    std::ostringstream line;
    line << "{\"frame\":" << frame_ << ",\"box\":" << (view.faces ? Json(*view.faces) : "null")
         << ",\"target\":" << Json(view.target) << ",\"crop\":" << Json(view.shown)
         << ",\"stepIndex\":" << follower_.Record().stepIndex
         << ",\"missCount\":" << follower_.Record().missCount
         << ",\"microseconds\":" << microseconds << "}\n";
    trace_->Write(line.str().data(), line.str().size());
  }

  const TrackOptions& options_;
  FramePool results_;
  std::unique_ptr<ByteOutput> trace_;
  FaceFollower follower_;
  int64_t frame_ = 0;
};

void CheckTrace(const TrackOptions& options) {
  if (options.trace.empty()) return;
  const std::string remedy = "; expected another file for --trace";
  if (IsSameFile(options.trace, InputPath(options.input))) {
    throw Failure(ExitCode::CommandLine,
                  "the trace " + Quoted(options.trace) + " is INPUT itself" + remedy);
  }
  if (IsSameFile(options.trace, options.output)) {
    throw Failure(ExitCode::CommandLine,
                  "the trace " + Quoted(options.trace) + " is OUTPUT itself" + remedy);
  }
  if (options.trace != "-") CheckPlace(options.trace, options.overwrite);
}

void Track(const TrackOptions& options) {
  std::shared_ptr<Tracker> tracker;
  CheckTrace(options);
  try {
    ProcessMedia(options, [&](const MediaShape& shape) -> FrameWork {
      tracker = std::make_shared<Tracker>(options, shape);
      return [tracker](FramePointer frame) { return tracker->Follow(std::move(frame)); };
    });
  } catch (const Failure& failure) {
    if (!tracker) throw;
    // Then the output has been finished as well.
    std::string further;
    if (failure.code == ExitCode::Stopped || failure.code == ExitCode::BrokenInput) {
      try {
        tracker->Finish();
      } catch (const Failure& second) {
        further = std::string("; ") + second.what();
      }
    } else {
      further = tracker->FinishAsPart();
    }
    throw Failure(failure.code, failure.what() + further);
  }
  tracker->Finish();
}

}  // namespace

void AddTrackCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<TrackOptions>();
  CLI::App* command = app.add_subcommand("track", "Follow faces: crop, pan and zoom onto them");
  AddFollowOptions(command, *options);
  command->add_flag("--overlay", options->overlay,
                    "Write the source with outlines instead: what is shown in orange, with the "
                    "rest darkened, the target dashed in blue, the faces' box dotted in white");
  command
      ->add_option("--trace", options->trace,
                   "Also write a line of JSON for each frame: its number, the faces' box (null "
                   "without a face), the target, the crop (x, y, width, height of what is shown), "
                   "stepIndex, missCount and the microseconds it took; - is standard output")
      ->type_name("FILE");
  AddMediaArguments(command, *options);
  command->footer(std::string(kAboutMedia) +
                  "\n\nExamples:\n  kolm track talk.mp4 close.mp4\n  kolm track frame-%04d.png "
                  "close-%04d.png\n  kolm track --overlay --trace talk.jsonl --steps 25 "
                  "/dev/video0 tracked.mkv");
  command->callback([&work, options] { work = [options] { Track(*options); }; });
}

}  // namespace kolm
