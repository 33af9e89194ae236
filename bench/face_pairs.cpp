// Face tracking: what the first tracker's start takes, and a frame of a tracker that has settled on
// a face.
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/bench_frames.h"
#include "bench/pairs.h"
#include "facetrack/face_detector.h"
#include "facetrack/face_tracking.h"
#include "platform/host/host_kernel.h"

namespace kolm::bench {
namespace {

constexpr Size kFrame = {640, 480};
constexpr Size kDetection = {160, 120};
constexpr uint32_t kScaleFactorMilli = 1100;

cv::Size CvSize(Size size) { return {size.width, size.height}; }

// The photograph as a Yuv16Frame, in grey.
cv::Mat PackedPhotograph() {
  cv::Mat luma = cv::imread(KOLM_BENCH_PHOTOGRAPH, cv::IMREAD_GRAYSCALE);
  if (luma.empty()) throw std::runtime_error("cannot read " KOLM_BENCH_PHOTOGRAPH);
  cv::resize(luma, luma, CvSize(kFrame), 0, 0, cv::INTER_AREA);
  cv::Mat packed;
  cv::merge(std::vector{luma, cv::Mat(luma.size(), CV_8UC1, cv::Scalar(128))}, packed);
  return packed;
}

// A tracker that has settled on the photograph's face.
class SettledTracker {
 public:
  SettledTracker() : source_(PackedPhotograph()), destination_(source_.clone()) {
    tracker_.frameWidth = static_cast<uint32_t>(kFrame.width);
    tracker_.frameHeight = static_cast<uint32_t>(kFrame.height);
    tracker_.detectWidth = kDetection.width;
    tracker_.detectHeight = kDetection.height;
    tracker_.scaleFactorMilli = kScaleFactorMilli;
    tracker_.stepCount = 2;
    tracker_.stepIndex = 1;
    tracker_.cropWidth = tracker_.targetWidth = kFrame.width;
    tracker_.cropHeight = tracker_.targetHeight = kFrame.height;
    tracker_.srcFrame = source_.data;
    tracker_.dstFrame = destination_.data;
    InitFaceTracking(static_cast<uint32_t>(kDetection.width),
                     static_cast<uint32_t>(kDetection.height), &tracker_.faceStorage,
                     &tracker_.detectionImage);
    for (int i = 0; i < 10; ++i) DoFaceTracking(&tracker_);
    if (tracker_.cropWidth == kFrame.width) throw std::runtime_error("no face in the photograph");
  }
  SettledTracker(const SettledTracker&) = delete;
  SettledTracker& operator=(const SettledTracker&) = delete;

  void Track(uint8_t* destination) {
    tracker_.dstFrame = destination;
    DoFaceTracking(&tracker_);
  }
  const cv::Mat& Source() const { return source_; }
  cv::Rect Crop() const {
    return cv::Rect(tracker_.cropX, tracker_.cropY, tracker_.cropWidth, tracker_.cropHeight) &
           cv::Rect({}, source_.size());
  }

 private:
  cv::Mat source_, destination_;
  FaceTracker tracker_ = {};
};

// Started when it is first needed; its lines to the debugger are not shown.
SettledTracker& TheTracker() {
  static SettledTracker& tracker = *[] {
    host::SetDebugSink([](const std::string&) {});
    return new SettledTracker;
  }();
  return tracker;
}

// The peer shows the same crop of the same frame, and looks at the same grey picture.
void TrackByOpenCV(uint8_t* destination) {
  static cv::CascadeClassifier classifier(KOLM_BENCH_CASCADE);
  const SettledTracker& tracker = TheTracker();
  cv::Mat reduced, grey;
  cv::resize(tracker.Source(), reduced, CvSize(kDetection), 0, 0, cv::INTER_NEAREST);
  cv::extractChannel(reduced, grey, 0);
  std::vector<cv::Rect> faces;
  classifier.detectMultiScale(grey, faces, kScaleFactorMilli / 1000.0, 2, 1);
  cv::Mat shown(CvSize(kFrame), CV_8UC2, destination);
  cv::resize(tracker.Source()(tracker.Crop()), shown, shown.size(), 0, 0, cv::INTER_NEAREST);
}

}  // namespace

void RegisterFacePairs() {
  RegisterPair(
      "tracking", "DoFaceTracking:1100", Name(kFrame) + "-" + Name(kDetection), kFrame,
      [](const Frames& frames) { TheTracker().Track(frames.destination); },
      [](const Frames& frames) { TrackByOpenCV(frames.destination); });
  RegisterPair(
      "cascade", "CreateFaceDetector", "24x24", kDetection,
      [](const Frames&) {
        FaceCascade* const cascade = LoadFaceCascade("<default_face_cascade>", 24, 24);
        FaceDetector* detector = CreateFaceDetector(*cascade);
        ReleaseFaceCascade(cascade);
        ReleaseFaceDetector(&detector);
      },
      [](const Frames&) { cv::CascadeClassifier().load(KOLM_BENCH_CASCADE); });
}

}  // namespace kolm::bench
