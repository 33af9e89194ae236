// kolm bench: how long each of the module's operations takes on this machine.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iomanip>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <string>
#include <vector>

#include "module/kolm.h"
#include "tools/kolm/background_record.h"
#include "tools/kolm/beach_scene.h"
#include "tools/kolm/command_line.h"
#include "tools/kolm/commands.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/sample_scene.h"

namespace kolm {
namespace {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

struct BenchOptions {
  std::vector<cv::Size> sizes;
  double seconds = 0.2;
  bool json = false;
};

// Frames follow one another through a capture queue: each call takes the next of these, so that
// large frames do not stay in the processor's cache.
constexpr size_t kFramesInQueue = 4;

struct FrameQueue {
  cv::Size size;
  Bytes sources[kFramesInQueue], destinations[kFramesInQueue];

  uint32_t Width() const { return static_cast<uint32_t>(size.width); }
  uint32_t Height() const { return static_cast<uint32_t>(size.height); }
};

struct Operation {
  std::string name;
  std::optional<uint32_t> parameter;
  std::function<void(const uint8_t* source, uint8_t* destination)> run;
};

struct Timing {
  double microseconds, copyMicroseconds;  // medians, a frame

  double FramesPerSecond() const { return 1e6 / microseconds; }
  double Ratio() const { return microseconds / copyMicroseconds; }
};

std::string SizeName(cv::Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

cv::Size ParseSize(const std::string& text) {
  cv::Size size;
  const char* end = text.data() + text.size();
  const auto [cross, widthError] = std::from_chars(text.data(), end, size.width);
  const bool isPair = widthError == std::errc() && cross != end && *cross == 'x';
  const auto [stop, heightError] = std::from_chars(isPair ? cross + 1 : end, end, size.height);
  constexpr int kLargestSide = 32766;
  constexpr int64_t kMostPixels = 40'000'000;
  if (heightError != std::errc() || stop != end || size.width < 2 || size.width % 2 != 0 ||
      size.height < 1 || size.width > kLargestSide || size.height > kLargestSide ||
      int64_t{size.width} * size.height > kMostPixels) {
    throw CLI::ValidationError("--sizes", "'" + text +
                                              "' is no size; expected WIDTHxHEIGHT such as "
                                              "1280x720, the width even, each at most " +
                                              std::to_string(kLargestSide) + ", at most " +
                                              std::to_string(kMostPixels / 1'000'000) +
                                              " million pixels");
  }
  return size;
}

FrameQueue MakeFrames(const cv::Mat& picture, cv::Size size) {
  FrameQueue frames;
  frames.size = size;
  cv::Mat scaled;
  cv::resize(picture, scaled, size, 0, 0, cv::INTER_LINEAR);
  for (Bytes& source : frames.sources) source = PackedFromPicture(scaled);
  // Room for a scaled background, which has an alpha plane.
  for (Bytes& destination : frames.destinations) destination.resize(scaled.total() * 3, 1);
  return frames;
}

// A tracker at rest on the whole frame; gives its resources back.
class Tracking {
 public:
  explicit Tracking(cv::Size frame) {
    constexpr int kDetectWidth = 160;
    tracker_.frameWidth = static_cast<uint32_t>(frame.width);
    tracker_.frameHeight = static_cast<uint32_t>(frame.height);
    tracker_.detectWidth = kDetectWidth;
    tracker_.detectHeight = std::max(1, cvRound(1.0 * kDetectWidth * frame.height / frame.width));
    tracker_.scaleFactorMilli = 1100;
    tracker_.stepCount = 20;
    tracker_.stepIndex = static_cast<uint32_t>(tracker_.stepCount - 1);
    tracker_.cropWidth = tracker_.targetWidth = frame.width;
    tracker_.cropHeight = tracker_.targetHeight = frame.height;
    Kolm_FT_InitFaceTracking(static_cast<uint32_t>(tracker_.detectWidth),
                             static_cast<uint32_t>(tracker_.detectHeight), &tracker_.faceStorage,
                             &tracker_.detectionImage);
  }
  ~Tracking() { Kolm_FT_UninitFaceTracking(&tracker_.faceStorage, &tracker_.detectionImage); }
  Tracking(const Tracking&) = delete;
  Tracking& operator=(const Tracking&) = delete;

  bool IsAvailable() const { return tracker_.detectionImage != nullptr; }

  void Run(const uint8_t* source, uint8_t* destination) {
    tracker_.srcFrame = source;
    tracker_.dstFrame = destination;
    Kolm_FT_DoFaceTracking(0, &tracker_);
  }

 private:
  FaceTracker tracker_ = {};
};

std::vector<Operation> ListOperations(const FrameQueue& frames, const Bytes& record) {
  const uint32_t width = frames.Width();
  const uint32_t height = frames.Height();
  std::vector<Operation> operations;
  for (const Effect& effect : ListEffects()) {
    operations.push_back({effect.name,
                          effect.HasParameter() ? std::optional(effect.defaultValue) : std::nullopt,
                          [=](const uint8_t* source, uint8_t* destination) {
                            Kolm_VE_RunVideoEffect(effect.routine, source, destination, width,
                                                   height, effect.defaultValue);
                          }});
  }
  const auto scale = [=, &record](const uint8_t*, uint8_t* destination) {
    Kolm_BG_ScaleBackground(record.data(), destination, width, static_cast<int32_t>(height));
  };
  operations.push_back({"background-scale", std::nullopt, scale});
  const auto background = std::make_shared<Bytes>(size_t{3} * width * height);
  scale(nullptr, background->data());
  operations.push_back(
      {"background-blend", std::nullopt, [=](const uint8_t* source, uint8_t* destination) {
         Kolm_BG_AlphaBlending(width, height, background->data(), source, destination);
       }});
  const auto tracking = std::make_shared<Tracking>(frames.size);
  if (tracking->IsAvailable()) {
    operations.push_back(
        {"track", std::nullopt, [tracking](const uint8_t* source, uint8_t* destination) {
           tracking->Run(source, destination);
         }});
  }
  return operations;
}

double Median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The operation and a copy of the frame take turns, so that a change of the processor's clock meets
// both.
Timing Measure(const Operation& operation, FrameQueue& frames, double seconds) {
  const size_t frameBytes = frames.sources[0].size();
  std::vector<double> works, copies;
  const auto time = [&](std::vector<double>& times, size_t frame, const auto& run) {
    const uint8_t* source = frames.sources[frame % kFramesInQueue].data();
    uint8_t* destination = frames.destinations[frame % kFramesInQueue].data();
    const Clock::time_point begin = Clock::now();
    run(source, destination);
    const std::chrono::duration<double, std::micro> taken = Clock::now() - begin;
    times.push_back(taken.count());
  };
  const auto copy = [&](const uint8_t* source, uint8_t* destination) {
    std::memcpy(destination, source, frameBytes);
  };
  constexpr size_t kLeastRounds = 5;
  const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                   std::chrono::duration<double>(seconds));
  for (size_t round = 0; round < kLeastRounds || Clock::now() < end; ++round) {
    // Whole turns of the queue, so that neither side finds its frames in the cache by the other.
    for (size_t frame = 0; frame < kFramesInQueue; ++frame) time(works, frame, operation.run);
    for (size_t frame = 0; frame < kFramesInQueue; ++frame) time(copies, frame, copy);
  }
  return {Median(works), Median(copies)};
}

void PrintRow(cv::Size size, const Operation& operation, const Timing& timing) {
  const std::string parameter =
      operation.parameter ? ":" + std::to_string(*operation.parameter) : "";
  std::cout << std::left << std::setw(11) << SizeName(size) << std::setw(20)
            << operation.name + parameter << std::right << std::fixed << std::setprecision(1)
            << std::setw(12) << timing.microseconds << std::setw(12) << timing.FramesPerSecond()
            << std::setw(12) << timing.copyMicroseconds << std::setprecision(2) << std::setw(9)
            << timing.Ratio() << std::endl;
}

void PrintJson(cv::Size size, const Operation& operation, const Timing& timing, bool isFirst) {
  std::cout << (isFirst ? "" : ",") << "\n    {\"width\": " << size.width
            << ", \"height\": " << size.height << ", \"operation\": \"" << operation.name << '"';
  if (operation.parameter) std::cout << ", \"parameter\": " << *operation.parameter;
  std::cout << std::fixed << std::setprecision(4) << ", \"microseconds\": " << timing.microseconds
            << ", \"frames_per_second\": " << timing.FramesPerSecond()
            << ", \"memcpy_microseconds\": " << timing.copyMicroseconds
            << ", \"ratio\": " << timing.Ratio() << "}" << std::flush;
}

void RunBench(const BenchOptions& options) {
  cv::Mat cover;
  cv::merge(std::vector<cv::Mat>{DrawBeachScene(), DrawSampleRoomCover()}, cover);
  const Bytes record = RecordFromPicture(cover, Fit::Crop);
  const cv::Mat picture = DrawSampleScene();
  if (options.json) {
    std::cout << "{\n  \"version\": \"" KOLM_VERSION "\",\n  \"seconds\": " << options.seconds
              << ",\n  \"results\": [";
  } else {
    std::cout << "size       operation             us/frame    frames/s   memcpy us    ratio\n";
  }
  bool isFirst = true;
  for (const cv::Size size : options.sizes) {
    FrameQueue frames = MakeFrames(picture, size);
    for (const Operation& operation : ListOperations(frames, record)) {
      const Timing timing = Measure(operation, frames, options.seconds);
      if (options.json) {
        PrintJson(size, operation, timing, isFirst);
      } else {
        PrintRow(size, operation, timing);
      }
      isFirst = false;
    }
  }
  if (options.json) std::cout << "\n  ]\n}\n";
  Kolm_VE_UninitVideoEffect();
}

}  // namespace

void AddBenchCommand(CLI::App& app, Work& work) {
  const auto options = std::make_shared<BenchOptions>();
  const auto sizes = std::make_shared<std::vector<std::string>>(
      std::vector<std::string>{"640x480", "1280x720", "1920x1080"});
  CLI::App* command =
      app.add_subcommand("bench", "Measure each operation on this machine, beside memcpy");
  command->add_option("--sizes", *sizes, "Frame sizes; by default 640x480,1280x720,1920x1080")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("WxH,...");
  command
      ->add_option("--seconds", options->seconds,
                   "How long to repeat each operation at each size; by default 0.2")
      ->check(NumberFrom(0.0, 3600.0))
      ->type_name("N");
  command->add_flag("--json", options->json, "Write JSON instead of a table");
  command->callback([&work, options, sizes] {
    for (const std::string& size : *sizes) options->sizes.push_back(ParseSize(size));
    work = [options] { RunBench(*options); };
  });
  command->footer(
      "Each effect runs at its default; the background operations scale a record to the frame's "
      "size\nand blend it with a frame. Times are medians, in microseconds, of whole calls on one "
      "thread;\nthe ratio is to a memcpy of the frame, measured in turns with the operation.\n\n"
      "Examples:\n  kolm bench\n  kolm bench --sizes 1280x720 --seconds 1 --json");
}

}  // namespace kolm
