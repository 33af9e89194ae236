// kolm view: a live window.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/kolm/background_arguments.h"
#include "tools/kolm/background_record.h"
#include "tools/kolm/beach_scene.h"
#include "tools/kolm/command_line.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/face_follower.h"
#include "tools/kolm/face_outlines.h"
#include "tools/kolm/failure.h"
#include "tools/kolm/frame_feed.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/picture_file.h"
#include "tools/kolm/pipeline.h"
#include "tools/kolm/progress.h"
#include "tools/kolm/sample_scene.h"
#include "tools/kolm/split_frame.h"
#include "tools/kolm/stop_request.h"
#include "tools/kolm/view_window.h"

namespace kolm {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

struct ViewOptions : MediaArguments, BackgroundArguments, FollowOptions {
  std::string effect;
  bool split = false;
  int64_t frames = 0;
};

// How long the module took and how many frames came, over the last second.
class Meter {
 public:
  void Add(Microseconds time) {
    const Clock::time_point now = Clock::now();
    entries_.push_back({now, time});
    ++sinceChange_;
    while (now - entries_.front().when > std::chrono::seconds(1)) entries_.pop_front();
    sinceChange_ = std::min(sinceChange_, entries_.size());
  }

  // What is done to the frames has changed: earlier times tell nothing.
  void Change(Microseconds time) {
    sinceChange_ = 0;
    timeOfChange_ = time;
  }

  double MeanTime() const {
    if (sinceChange_ == 0) return timeOfChange_.count();
    Microseconds sum{};
    for (size_t i = entries_.size() - sinceChange_; i < entries_.size(); ++i) {
      sum += entries_[i].time;
    }
    return sum.count() / static_cast<double>(sinceChange_);
  }

  double FramesPerSecond() const {
    if (entries_.size() < 2) return 0;
    const std::chrono::duration<double> span = entries_.back().when - entries_.front().when;
    return static_cast<double>(entries_.size() - 1) / span.count();
  }

 private:
  struct Entry {
    Clock::time_point when;
    Microseconds time;
  };
  std::deque<Entry> entries_;
  size_t sinceChange_ = 0;
  Microseconds timeOfChange_{};
};

std::vector<uint8_t> BuiltInRecord(bool isSample) {
  cv::Mat background;
  cv::merge(std::vector<cv::Mat>{DrawBeachScene(),
                                 isSample ? DrawSampleRoomCover() : DrawPortraitCover()},
            background);
  return RecordFromPicture(background, Fit::Crop);
}

// What is done to a frame, and the frame that it is done to.
class View {
 public:
  // `record` is the background to begin with; without one it is empty.
  View(const ViewOptions& options, const std::vector<uint8_t>& record, const MediaShape& shape,
       ViewWindow& window)
      : options_(options),
        shape_(shape),
        window_(window),
        results_(shape.width, shape.height, AV_PIX_FMT_YUYV422, 1),
        hasBackground_(!record.empty()),
        isSplit_(options.split) {
    if (hasBackground_) background_ = ScaleRecord(record, shape.width, shape.height);
    for (const Effect& effect : effects_) parameters_.push_back(effect.defaultValue);
    if (options.effect.empty()) return;
    const EffectUse use = ParseEffectUse(effects_, options.effect);
    effect_ = use.effect.id;
    parameters_[effect_ - 1] = use.parameter;
  }

  bool WantsFrame() const { return !isPaused_ || steps_ > 0; }

  void SetFrame(FramePointer frame) {
    if (isPaused_) --steps_;
    source_ = std::move(frame);
    Track();
    Process();
    meter_.Add(trackTime_ + time_);
    constexpr std::chrono::seconds kTextStays(3);
    if (!showsHelp_ && hasText_ && Clock::now() - textSince_ > kTextStays) SetText({});
    constexpr std::chrono::milliseconds kTitleStays(250);
    if (Clock::now() - titleSince_ > kTitleStays) SetTitle();
  }

  void Press(ViewKey key) {
    switch (key) {
      case ViewKey::NextEffect:
        return ChooseEffect(effect_ == effects_.size() ? 0 : effect_ + 1);
      case ViewKey::PreviousEffect:
        return ChooseEffect(effect_ == 0 ? effects_.size() : effect_ - 1);
      case ViewKey::MoreParameter:
        return ChangeParameter(1);
      case ViewKey::LessParameter:
        return ChangeParameter(-1);
      case ViewKey::Background:
        if (background_.empty()) {
          background_ =
              ScaleRecord(BuiltInRecord(options_.input.empty()), shape_.width, shape_.height);
        }
        return Toggle(hasBackground_, "background");
      case ViewKey::Tracking:
        return ToggleTracking();
      case ViewKey::Outlines:
        if (!follower_) ToggleTracking();
        if (follower_) Toggle(hasOutlines_, "outlines of the tracking");
        return;
      case ViewKey::Split:
        return Toggle(isSplit_, "halves");
      case ViewKey::Pause:
        steps_ = 0;
        return Toggle(isPaused_, "pause");
      case ViewKey::Step:
        isPaused_ = true;
        ++steps_;
        return Say("one frame further");
      case ViewKey::Screenshot:
        return WriteScreenshot();
      case ViewKey::Help:
        showsHelp_ = !showsHelp_;
        return SetText(showsHelp_ ? ListKeys() : std::vector<std::string>());
      case ViewKey::Quit:
        return;
    }
  }

 private:
  const Effect* CurrentEffect() const { return effect_ == 0 ? nullptr : &effects_[effect_ - 1]; }

  std::string EffectText() const {
    const Effect* effect = CurrentEffect();
    if (effect == nullptr) return "no effect";
    return std::to_string(effect->id) + " " + effect->name +
           (effect->HasParameter() ? ", parameter " + std::to_string(parameters_[effect_ - 1]) +
                                         " (" + std::to_string(effect->minimum) + " to " +
                                         std::to_string(effect->maximum) + ")"
                                   : ", no parameter");
  }

  void ChooseEffect(size_t effect) {
    effect_ = effect;
    Change(EffectText());
  }

  void ChangeParameter(int step) {
    const Effect* effect = CurrentEffect();
    if (effect != nullptr && effect->HasParameter()) {
      const int64_t wanted = int64_t{parameters_[effect_ - 1]} + step;
      parameters_[effect_ - 1] =
          static_cast<uint32_t>(std::clamp<int64_t>(wanted, effect->minimum, effect->maximum));
    }
    Change(EffectText());
  }

  void Toggle(bool& state, const std::string& name) {
    state = !state;
    Change(name + (state ? " on" : " off"));
  }

  void ToggleTracking() {
    if (follower_) {
      follower_.reset();
      hasOutlines_ = false;
    } else {
      try {
        follower_ = std::make_unique<FaceFollower>(options_, shape_.width, shape_.height);
      } catch (const Failure& failure) {
        Tell(failure.what());
        return Say("no tracking: see the terminal");
      }
    }
    Track();
    Change(follower_ ? "face tracking on" : "face tracking off");
  }

  // What is shown changes, even if no frame comes.
  void Change(const std::string& line) {
    if (source_) Process();
    meter_.Change(trackTime_ + time_);
    Say(line);
  }

  void Say(const std::string& line) {
    showsHelp_ = false;
    SetText({line});
    SetTitle();
  }

  void SetText(const std::vector<std::string>& lines) {
    window_.SetText(lines);
    hasText_ = !lines.empty();
    textSince_ = Clock::now();
  }

  void SetTitle() {
    char numbers[64];
    std::snprintf(numbers, sizeof numbers, " | %.0f \u00b5s | %.1f fps", meter_.MeanTime(),
                  meter_.FramesPerSecond());
    std::string title = EffectText() + numbers;
    if (hasBackground_) title += " | background";
    if (follower_) title += hasOutlines_ ? " | tracking, outlines" : " | tracking";
    if (isSplit_) title += " | halves";
    if (isPaused_) title += " | paused";
    window_.SetTitle(title + " - kolm");
    titleSince_ = Clock::now();
  }

  // Once for each frame and no more, as the tracker counts them.
  void Track() {
    tracked_.reset();
    trackTime_ = {};
    if (!follower_ || !source_) return;
    tracked_ = results_.Get();
    const Clock::time_point begin = Clock::now();
    follower_->Follow(source_->data[0], tracked_->data[0]);
    trackTime_ = Clock::now() - begin;
  }

  void Process() {
    const auto width = static_cast<uint32_t>(source_->width);
    const auto height = static_cast<uint32_t>(source_->height);
    FramePointer outlined;
    if (tracked_ && hasOutlines_) {
      outlined = results_.Get();
      std::memcpy(outlined->data[0], source_->data[0], size_t{width} * height * 2);
      const int line = std::max(2, source_->width / 320);
      DrawOutlines(outlined->data[0], source_->width, source_->height, follower_->View(), line);
    }
    const AVFrame* from = outlined ? outlined.get() : tracked_ ? tracked_.get() : source_.get();
    FramePointer blended, result;
    const Clock::time_point begin = Clock::now();
    if (hasBackground_) {
      blended = results_.Get();
      Kolm_BG_AlphaBlending(width, height, background_.data(), from->data[0], blended->data[0]);
      from = blended.get();
    }
    if (const Effect* effect = CurrentEffect(); effect != nullptr) {
      result = results_.Get();
      Kolm_VE_RunVideoEffect(effect->routine, from->data[0], result->data[0], width, height,
                             parameters_[effect_ - 1]);
      from = result.get();
    }
    time_ = Clock::now() - begin;
    shown_ = results_.Get();
    std::memcpy(shown_->data[0], from->data[0], size_t{width} * height * 2);
    if (isSplit_) KeepLeftHalf(*source_, *shown_);
    window_.Show(*shown_);
  }

  // Beside the input, if that is a file.
  void WriteScreenshot() {
    if (!shown_) return;
    const std::filesystem::path input = options_.input;
    const bool isFile = std::filesystem::is_regular_file(input);
    const std::string stem = isFile ? input.stem().string() : "kolm";
    const std::string effect = effect_ == 0 ? "" : "-" + CurrentEffect()->name;
    std::filesystem::path path;
    int number = 1;
    do {
      path = (isFile ? input.parent_path() : std::filesystem::path()) /
             (stem + effect + "-" + std::to_string(number++) + ".png");
    } while (std::filesystem::exists(std::filesystem::symlink_status(path)));
    const std::vector<uint8_t> bytes(shown_->data[0],
                                     shown_->data[0] + size_t{2} * shown_->width * shown_->height);
    try {
      WritePicture(PictureFromPacked(bytes, {shown_->width, shown_->height}), path, false);
      Tell("wrote " + Quoted(path));
      Say("wrote " + path.filename().string());
    } catch (const Failure& failure) {
      Tell(failure.what());
      Say("no screenshot: see the terminal");
    }
  }

  const ViewOptions& options_;
  const MediaShape& shape_;
  ViewWindow& window_;
  const EffectList effects_ = ListEffects();
  FramePool results_;
  std::vector<uint8_t> background_;
  std::unique_ptr<FaceFollower> follower_;

  size_t effect_ = 0;                 // its id; 0 for none
  std::vector<uint32_t> parameters_;  // of each effect
  bool hasBackground_, hasOutlines_ = false, isSplit_, isPaused_ = false;
  int steps_ = 0;  // still to be taken while paused

  FramePointer source_, tracked_, shown_;
  Microseconds trackTime_{}, time_{};
  Meter meter_;
  bool showsHelp_ = false, hasText_ = false;
  Clock::time_point textSince_, titleSince_;
};

void RunView(const ViewOptions& options) {
  WatchForStop();
  if (!options.effect.empty()) ParseEffectUse(ListEffects(), options.effect);
  std::vector<uint8_t> record;
  if (!options.store.empty() || !options.bitmap.empty()) record = LoadBackground(options);
  ViewWindow window;
  FrameFeed feed(ReadSourceOptions(options));
  View view(options, record, feed.Shape(), window);
  window.Open(feed.Shape());
  int64_t count = 0;
  while (!StopRequested()) {
    while (const std::optional<ViewKey> key = window.NextKey()) {
      if (key == ViewKey::Quit) return;
      view.Press(*key);
    }
    constexpr std::chrono::milliseconds kUntilNextKey(10);
    if (!view.WantsFrame()) {
      std::this_thread::sleep_for(kUntilNextKey);
    } else if (FramePointer frame = feed.Take(kUntilNextKey)) {
      view.SetFrame(std::move(frame));
      if (++count == options.frames) return;
    }
  }
  // By a signal, to whose sender nothing needs to be told.
  throw Failure(ExitCode::Stopped, "");
}

std::string Footer() {
  std::string text =
      "INPUT is a picture, a video, a numbered sequence of pictures (frame-%04d.png), a camera\n"
      "(/dev/video0), or - for standard input. Pictures stand still, videos and sequences begin\n"
      "again at their end, each at its own rate.\n\nA frame is tracked, then its background is "
      "replaced, then the effect is applied. The title\ntells the effect, its parameter, how many "
      "microseconds of each frame the module takes, and\nframes a second. Without --store and "
      "--bitmap the background is a built-in picture.\nScreenshots go beside INPUT, or to the "
      "current folder if it is no file; they overwrite nothing.\n\nKeys:";
  for (const std::string& line : ListKeys()) {
    const size_t tab = line.find('\t');
    std::string name = line.substr(0, tab);
    name.resize(7, ' ');
    text += "\n  " + name + line.substr(tab + 1);
  }
  return text +
         "\n\nExamples:\n  kolm view\n  kolm view -e box-blur:4 --split /dev/video0\n  kolm view "
         "--store KolmBg.img --record 2 talk.mp4\n  ffmpeg -i talk.mp4 -f yuv4mpegpipe - | kolm "
         "view -";
}

}  // namespace

void AddViewCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<ViewOptions>();
  CLI::App* command =
      app.add_subcommand("view", "Show a picture, video or camera in a window, and try it by keys");
  command
      ->add_option("INPUT", options->input, "What frames come from; without it a built-in sample")
      ->type_name("");
  command
      ->add_option("-e,--effect", options->effect,
                   "Begin with this effect, by name or id, with a parameter or at its default")
      ->type_name("NAME|ID[:PARAM]");
  command->add_flag("--split", options->split,
                    "Begin with the source in the left half, the result in the right one");
  AddBackgroundArguments(command, *options, 0);
  AddFollowOptions(command, *options);
  command->add_option("-s,--size", options->size, "Size of raw frames, or wished for of a camera")
      ->type_name("WxH");
  command
      ->add_option("-r,--rate", options->rate,
                   "Frames a second of raw frames, sequences and pictures (25), or wished for of "
                   "a camera; may be a fraction: 30000/1001")
      ->type_name("FPS");
  command->add_option("--frames", options->frames, "Quit after N frames")
      ->check(NumberFrom<int64_t>(1))
      ->type_name("N");
  command->footer(Footer());
  command->callback([&work, options] { work = [options] { RunView(*options); }; });
}

}  // namespace kolm
