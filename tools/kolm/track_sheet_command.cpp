// kolm track-sheet: a film strip of face tracking.
#include <CLI/CLI.hpp>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/kolm/commands.h"
#include "tools/kolm/contact_sheet.h"
#include "tools/kolm/face_follower.h"
#include "tools/kolm/face_outlines.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/media_source.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/picture_arguments.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/stop_request.h"
#include "tools/kolm/walking_scene.h"

namespace kolm {
namespace {

struct TrackSheetOptions : PictureArguments, FollowOptions {};

// Follows the faces from frame to frame and keeps some frames, evenly spaced.
class Strip {
 public:
  Strip(const FollowOptions& options, int width, int height, double rate)
      : size_(width, height), rate_(rate), follower_(options, width, height) {}

  void Add(const std::vector<uint8_t>& frame) {
    std::vector<uint8_t> result(frame.size());
    follower_.Follow(frame.data(), result.data());
    const int index = count_++;
    if (index % every_ != 0) return;
    const cv::Mat source = ReduceToCell(PictureFromPacked(frame, size_), kTrackCellWidth);
    kept_.push_back({source, ReduceToCell(PictureFromPacked(result, size_), kTrackCellWidth),
                     Scaled(follower_.View(), static_cast<double>(source.cols) / size_.width),
                     index / rate_});
    if (kept_.size() < kMostKept) return;
    for (size_t i = 0; 2 * i < kept_.size(); ++i) kept_[i] = kept_[2 * i];
    kept_.resize((kept_.size() + 1) / 2);
    every_ *= 2;
  }

  // From the first to nearly the last.
  std::vector<TrackedFrame> Choose() const {
    if (kept_.size() <= kTrackColumns) return kept_;
    std::vector<TrackedFrame> chosen;
    for (int i = 0; i < kTrackColumns; ++i) {
      const double place = static_cast<double>(kept_.size() - 1) * i / (kTrackColumns - 1);
      chosen.push_back(kept_[static_cast<size_t>(std::lround(place))]);
    }
    return chosen;
  }

 private:
  static constexpr size_t kMostKept = 128;

  cv::Size size_;
  double rate_;
  FaceFollower follower_;
  int count_ = 0, every_ = 1;
  std::vector<TrackedFrame> kept_;
};

// In the scene the face leaves and comes back.
std::vector<TrackedFrame> FollowScene(FollowOptions options) {
  options.resetWhenLost = true;
  const WalkingScene scene;
  Strip strip(options, 640, 480, WalkingScene::kRate);
  for (int i = 0; i < WalkingScene::kFrames; ++i) strip.Add(PackedFromPicture(scene.Frame(i)));
  return strip.Choose();
}

std::vector<TrackedFrame> FollowInput(const TrackSheetOptions& options) {
  WatchForStop();
  const std::unique_ptr<FrameSource> source = OpenSource({options.picture});
  const MediaShape& shape = source->Shape();
  Strip strip(options, shape.width, shape.height, av_q2d(shape.rate));
  MediaItem item;
  std::vector<uint8_t> frame;
  int frames = 0;
  while (source->Next(item)) {
    if (!item.frame) continue;
    const uint8_t* bytes = item.frame->data[0];
    frame.assign(bytes, bytes + static_cast<size_t>(item.frame->linesize[0]) * shape.height);
    strip.Add(frame);
    ++frames;
  }
  if (!source->Damage().empty()) {
    throw Failure(ExitCode::BrokenInput,
                  "'" + options.picture + "' is damaged: " + source->Damage());
  }
  // A picture is held before the camera until the crop has come to rest.
  if (frames == 1) {
    for (int i = 0; i < 4 * options.steps; ++i) strip.Add(frame);
  }
  return strip.Choose();
}

void WriteTrackSheet(const TrackSheetOptions& options) {
  CheckOutput(options.output, options.overwrite);
  const std::vector<TrackedFrame> frames =
      options.picture.empty() ? FollowScene(options) : FollowInput(options);
  WritePicture(DrawTrackSheet(frames), options.output, options.overwrite);
}

}  // namespace

void AddTrackSheetCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<TrackSheetOptions>();
  CLI::App* command = app.add_subcommand(
      "track-sheet",
      "Write a film strip of face tracking: frames with what is found and shown, and the results");
  AddFollowOptions(command, *options);
  AddOptionalPicture(
      command, *options,
      {"INPUT",
       "A video, a numbered sequence of pictures (frame-%04d.png), a picture, which is held "
       "still, or a camera; without it a built-in moving scene"},
      {"OUTPUT", "The strip's picture file"},
      [&work, options] { work = [options] { WriteTrackSheet(*options); }; });
  command->footer(
      "The strip has 8 of INPUT's frames, evenly spaced. Above, what is shown is outlined in "
      "orange\n"
      "and the rest is darkened; the target is dashed in blue; the box of all faces found is "
      "dotted\n"
      "in white. Below are the resulting frames.\n\n"
      "The first SIGINT (Ctrl-C), SIGTERM or SIGHUP ends INPUT, of a camera for instance, and the "
      "strip "
      "is\n"
      "drawn of what there was.\n\n"
      "Examples:\n  kolm track-sheet strip.png\n  kolm track-sheet -y --steps 25 talk.mp4 "
      "strip.png");
}

}  // namespace kolm
