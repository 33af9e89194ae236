// Trackers from Init to Uninit, with the real detector: what they share, what they leave, and what
// their frames look like beside the reference.
#include <gtest/gtest.h>
#include <opencv2/core/core_c.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>
#include <opencv2/core/utility.hpp>

#include "facetrack/face_detector.h"
#include "facetrack/track_face.h"
#include "module/kolm.h"
#include "platform/host/host_kernel.h"
#include "tests/drawn_face.h"
#include "tests/reference_track_face.h"

namespace kolm {
namespace {

using reference::Bytes;
using reference::Describe;

struct Tracker {
  explicit Tracker(uint32_t frameWidth = 320, uint32_t frameHeight = 240, int32_t detectWidth = 160,
                   int32_t detectHeight = 120)
      : source(GreyFrame(frameWidth, frameHeight)), output(source.size()) {
    record.frameWidth = frameWidth;
    record.frameHeight = frameHeight;
    record.detectWidth = detectWidth;
    record.detectHeight = detectHeight;
    record.scaleFactorMilli = 1100;
    record.stepCount = 4;
    record.stepIndex = 3;
    record.cropWidth = record.targetWidth = static_cast<int32_t>(frameWidth);
    record.cropHeight = record.targetHeight = static_cast<int32_t>(frameHeight);
  }

  void Init() {
    EXPECT_EQ(Kolm_FT_InitFaceTracking(static_cast<uint32_t>(record.detectWidth),
                                       static_cast<uint32_t>(record.detectHeight),
                                       &record.faceStorage, &record.detectionImage),
              0);
  }
  void Uninit() {
    EXPECT_EQ(Kolm_FT_UninitFaceTracking(&record.faceStorage, &record.detectionImage), 0);
    EXPECT_EQ(record.faceStorage, nullptr);
    EXPECT_EQ(record.detectionImage, nullptr);
  }
  // Whether the output was written.
  bool Do() {
    record.srcFrame = source.data();
    record.dstFrame = output.data();
    std::fill(output.begin(), output.end(), 0xA5);
    EXPECT_EQ(Kolm_FT_DoFaceTracking(0, &record), 0);
    return output != Bytes(output.size(), 0xA5);
  }
  bool HasBoth() const { return record.faceStorage != nullptr && record.detectionImage != nullptr; }

  FaceTracker record = {};
  Bytes source, output;
};

class FaceTrackerLifecycle : public testing::Test {
 protected:
  void SetUp() override {
    threads = cv::getNumThreads();
    cv::setNumThreads(2);
    host::SetDebugSink([this](const std::string& text) { lines.push_back(text); });
  }
  void TearDown() override {
    host::SetDebugSink(nullptr);
    EXPECT_EQ(host::DescribePoolBlocks(), "");
    EXPECT_FALSE(IsLibraryInUse());
    cv::setNumThreads(threads);
  }

  // OpenCV is held to one thread as long as the module needs it.
  static bool IsLibraryInUse() { return cv::getNumThreads() == 1; }

  static void UninitWithoutHandles() {
    void* storage = nullptr;
    void* image = nullptr;
    EXPECT_EQ(Kolm_FT_UninitFaceTracking(&storage, &image), 0);
    EXPECT_EQ(storage, nullptr);
    EXPECT_EQ(image, nullptr);
  }

  int threads = 0;
  std::vector<std::string> lines;
};

TEST_F(FaceTrackerLifecycle, InitMakesAStorageAndAnEmptyImage) {
  int marker = 0;
  Tracker tracker;
  tracker.record.faceStorage = tracker.record.detectionImage = &marker;
  tracker.Init();
  ASSERT_TRUE(tracker.HasBoth());
  EXPECT_NE(tracker.record.faceStorage, &marker);
  EXPECT_NE(tracker.record.detectionImage, &marker);
  const uint8_t* data = DetectionImageData(tracker.record.detectionImage);
  const size_t bytes = DetectionImageBytes(tracker.record.detectionImage);
  EXPECT_EQ(bytes, 160u * 120 * 3);
  EXPECT_EQ(std::count(data, data + bytes, 0), 160 * 120 * 3);
  EXPECT_EQ(host::DescribePoolBlocks(), "");
  tracker.Uninit();
  EXPECT_EQ(lines, std::vector<std::string>(
                       {"Kolm: Kolm_FT_InitFaceTracking\n", "Kolm: Kolm_FT_UninitFaceTracking\n"}));
}

TEST_F(FaceTrackerLifecycle, InitMakesOpenCVsStructures) {
  for (const auto& [width, height] : {std::pair(160, 120), std::pair(161, 3)}) {
    Tracker tracker(320, 240, width, height);
    tracker.Init();
    ASSERT_TRUE(tracker.HasBoth());
    EXPECT_EQ(static_cast<CvMemStorage*>(tracker.record.faceStorage)->block_size, 65408);
    const auto* image = static_cast<IplImage*>(tracker.record.detectionImage);
    EXPECT_EQ(image->depth, 8);
    EXPECT_EQ(image->nChannels, 3);
    EXPECT_EQ(image->width, width);
    EXPECT_EQ(image->height, height);
    ASSERT_NE(image->roi, nullptr);
    EXPECT_EQ(image->roi->coi, 0);
    EXPECT_EQ(image->roi->xOffset, 0);
    EXPECT_EQ(image->roi->yOffset, 0);
    EXPECT_EQ(image->roi->width, width);
    EXPECT_EQ(image->roi->height, height);
    tracker.Uninit();
  }
}

TEST_F(FaceTrackerLifecycle, EachFrameClearsTheStorageFirst) {
  Tracker tracker;
  tracker.Init();
  auto* const storage = static_cast<CvMemStorage*>(tracker.record.faceStorage);
  const auto bytesTaken = [storage] {
    return storage->top == storage->bottom && storage->bottom != nullptr
               ? storage->block_size - static_cast<int>(sizeof(CvMemBlock)) - storage->free_space
               : INT_MAX;
  };
  EXPECT_TRUE(tracker.Do());
  const int ofAFrame = bytesTaken();
  EXPECT_GT(ofAFrame, 0);
  // The second block is one that the next frame has no use for.
  const auto fill = [storage] {
    cvMemStorageAlloc(storage, 40000);
    cvMemStorageAlloc(storage, 40000);
  };
  fill();
  EXPECT_EQ(bytesTaken(), INT_MAX);
  EXPECT_TRUE(tracker.Do());
  EXPECT_EQ(bytesTaken(), ofAFrame);
  fill();
  tracker.record.scaleFactorMilli = 1000;  // nothing is looked for
  EXPECT_TRUE(tracker.Do());
  EXPECT_EQ(bytesTaken(), 0);
  fill();
  TrackFace(&tracker.record, nullptr);
  EXPECT_EQ(bytesTaken(), 0);
  fill();
  void* image = nullptr;
  std::swap(image, tracker.record.detectionImage);
  EXPECT_FALSE(tracker.Do());
  EXPECT_EQ(bytesTaken(), 0);
  std::swap(image, tracker.record.detectionImage);
  tracker.Uninit();
}

TEST_F(FaceTrackerLifecycle, TheFirstTrackerBuildsTheDetectorAndTheLastOneReleasesIt) {
  Tracker first, second, third;
  const auto allocationsOf = [](auto call) {
    const uint64_t before = host::PoolAllocations();
    call();
    return host::PoolAllocations() - before;
  };
  // Reading the cascade takes pool blocks.
  EXPECT_GT(allocationsOf([&] { first.Init(); }), 0u);
  EXPECT_EQ(allocationsOf([&] { second.Init(); }), 0u);
  EXPECT_TRUE(first.Do());
  EXPECT_TRUE(second.Do());
  first.Uninit();
  EXPECT_TRUE(second.Do());
  second.Uninit();
  EXPECT_GT(allocationsOf([&] { third.Init(); }), 0u);
  EXPECT_TRUE(third.Do());
  third.Uninit();
}

// The count stays below 0 here, so that it is done in a process of its own.
TEST_F(FaceTrackerLifecycle, UninitWithoutHandlesCountsAndMayReleaseTheDetector) {
  const auto run = [] {
    Tracker first, second, third;
    first.Init();
    second.Init();
    UninitWithoutHandles();
    EXPECT_TRUE(first.Do());
    UninitWithoutHandles();
    // Without a detector nothing is written, but the handles stay good for the next one.
    EXPECT_FALSE(first.Do());
    EXPECT_FALSE(second.Do());
    EXPECT_TRUE(IsLibraryInUse());
    third.Init();
    EXPECT_TRUE(first.Do());
    EXPECT_TRUE(second.Do());
    third.Uninit();
    EXPECT_FALSE(first.Do());
    EXPECT_TRUE(IsLibraryInUse());
    first.Uninit();
    EXPECT_TRUE(IsLibraryInUse());
    second.Uninit();
    EXPECT_FALSE(IsLibraryInUse());
    UninitWithoutHandles();
    EXPECT_FALSE(IsLibraryInUse());
    std::exit(HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(FaceTrackerLifecycle, WithoutAnImageNothingIsWritten) {
  Tracker tracker;
  tracker.Init();
  void* image = nullptr;
  std::swap(image, tracker.record.detectionImage);
  const FaceTracker before = tracker.record;
  lines.clear();
  EXPECT_FALSE(tracker.Do());
  EXPECT_EQ(lines, std::vector<std::string>({"Kolm: Kolm_FT_DoFaceTracking, 0\n"}));
  FaceTracker after = tracker.record;
  after.srcFrame = before.srcFrame;
  after.dstFrame = before.dstFrame;
  EXPECT_EQ(Describe(after), Describe(before));
  std::swap(image, tracker.record.detectionImage);
  tracker.Uninit();
}

TEST_F(FaceTrackerLifecycle, SizesThatCannotBeGiveNoImage) {
  for (const auto& [width, height] :
       {std::pair(0u, 120u), std::pair(160u, 0u), std::pair(0u, 0u), std::pair(UINT_MAX, UINT_MAX),
        std::pair(1u << 16, 1u << 16), std::pair(1u, UINT_MAX), std::pair(0x80000000u, 2u),
        std::pair(0x55555556u, 1u), std::pair(26755u, 26755u)}) {
    Tracker tracker;
    tracker.record.detectWidth = static_cast<int32_t>(width);
    tracker.record.detectHeight = static_cast<int32_t>(height);
    tracker.Init();
    EXPECT_NE(tracker.record.faceStorage, nullptr);
    EXPECT_EQ(tracker.record.detectionImage, nullptr) << width << " x " << height;
    EXPECT_FALSE(tracker.Do());
    tracker.Uninit();
  }
}

TEST_F(FaceTrackerLifecycle, ARecordThatDoesNotFitItsImageHasNoFaces) {
  Tracker tracker;
  DrawFace(&tracker.source, 320, 240, 160, 120, 60);
  tracker.Init();
  for (const auto& [width, height] :
       {std::pair(160, 181), std::pair(0, 120), std::pair(160, -120), std::pair(INT_MIN, INT_MIN),
        std::pair(INT_MAX, INT_MAX), std::pair(1 << 16, 1 << 16)}) {
    tracker.record.detectWidth = width;
    tracker.record.detectHeight = height;
    lines.clear();
    EXPECT_TRUE(tracker.Do());
    EXPECT_EQ(tracker.output, tracker.source);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "YUV16_Face 1........... 320, 240, 0, 0\n");
  }
  tracker.record.detectWidth = 160;
  tracker.record.detectHeight = 120;
  lines.clear();
  EXPECT_TRUE(tracker.Do());
  EXPECT_EQ(lines.size(), 3u);
  tracker.Uninit();
}

TEST_F(FaceTrackerLifecycle, WithoutAStorageNoFaceIsFound) {
  Tracker tracker;
  DrawFace(&tracker.source, 320, 240, 160, 120, 60);
  tracker.Init();
  void* storage = nullptr;
  std::swap(storage, tracker.record.faceStorage);
  lines.clear();
  EXPECT_TRUE(tracker.Do());
  EXPECT_EQ(lines, std::vector<std::string>({"Kolm: Kolm_FT_DoFaceTracking, 0\n",
                                             "YUV16_Face 1........... 320, 240, 0, 0\n"}));
  std::swap(storage, tracker.record.faceStorage);
  tracker.Uninit();
}

TEST_F(FaceTrackerLifecycle, ScaleFactorsThatStandStillFindNoFace) {
  Tracker tracker;
  DrawFace(&tracker.source, 320, 240, 160, 120, 60);
  tracker.Init();
  for (const uint32_t factor : {0u, 1u, 999u, 1000u}) {
    tracker.record.scaleFactorMilli = factor;
    lines.clear();
    EXPECT_TRUE(tracker.Do());
    EXPECT_EQ(lines.size(), 2u);
  }
  tracker.Uninit();
}

TEST_F(FaceTrackerLifecycle, FailedAllocationsLeaveAStateThatTheNextInitMends) {
  Tracker tracker;
  size_t unwritten = 0;
  const size_t failed = host::FailEachAllocationOnce([&] {
    tracker.Init();
    if (!tracker.Do()) {
      ++unwritten;
      Tracker second;
      second.Init();
      EXPECT_TRUE(tracker.Do());
      second.Uninit();
      EXPECT_TRUE(tracker.Do());
    }
    tracker.Uninit();
    EXPECT_EQ(host::DescribePoolBlocks(), "");
    EXPECT_FALSE(IsLibraryInUse());
  });
  EXPECT_GT(failed, 0u);
  EXPECT_EQ(unwritten, failed);
}

// Rounds of one and of two trackers, ten frames each.
TEST_F(FaceTrackerLifecycle, AThousandRoundsLeaveNothing) {
  const int rounds = std::max(20, static_cast<int>(1000 * KOLM_TEST_CASE_FACTOR));
  for (int round = 0; round < rounds; ++round) {
    lines.clear();
    std::vector<Tracker> trackers(1 + round % 2, Tracker(64, 48, 40, 30));
    for (Tracker& tracker : trackers) tracker.Init();
    for (int frame = 0; frame < 10; ++frame) {
      for (Tracker& tracker : trackers) ASSERT_TRUE(tracker.Do());
    }
    for (Tracker& tracker : trackers) {
      ASSERT_TRUE(IsLibraryInUse());
      tracker.Uninit();
    }
    ASSERT_EQ(host::DescribePoolBlocks(), "");
    ASSERT_FALSE(IsLibraryInUse());
  }
}

// What the detector finds on an image of this content.
std::vector<FaceRectangle> FacesIn(const Bytes& content, uint32_t width, uint32_t height,
                                   FaceDetector* detector, uint32_t scaleFactorMilli) {
  void* storage = CreateFaceStorage();
  void* image = CreateDetectionImage(width, height);
  std::copy(content.begin(), content.end(), DetectionImageData(image));
  const FaceSequence* found = DetectFaces(image, detector, storage, scaleFactorMilli);
  std::vector<FaceRectangle> faces;
  for (int32_t i = 0; i < CountFaces(found); ++i) faces.push_back(GetFace(found, i));
  ReleaseDetectionImage(&image);
  ReleaseFaceStorage(&storage);
  return faces;
}

// What it finds on the tracker's next frame.
std::vector<FaceRectangle> FacesOn(const Tracker& tracker, FaceDetector* detector) {
  const FaceTracker& r = tracker.record;
  const Bytes picture = reference::CropScaleYuv16Inside(
      tracker.source, static_cast<int32_t>(r.frameWidth), static_cast<int32_t>(r.frameHeight),
      r.detectWidth, r.detectHeight,
      {0, 0, static_cast<int32_t>(r.frameWidth), static_cast<int32_t>(r.frameHeight)});
  return FacesIn(picture, static_cast<uint32_t>(r.detectWidth),
                 static_cast<uint32_t>(r.detectHeight), detector, r.scaleFactorMilli);
}

// A face that enters, walks, stands, is joined by another, and leaves.
void DrawScene(Tracker* tracker, int frame) {
  const uint32_t width = tracker->record.frameWidth, height = tracker->record.frameHeight;
  const double radius = height / 5.0;
  tracker->source = GreyFrame(width, height);
  if (frame < 2 || frame > 35) return;
  const double x = width * (frame < 14 ? 0.2 + 0.02 * frame : 0.48);
  DrawFace(&tracker->source, width, height, x, height * 0.45, radius);
  if (frame > 22 && frame < 30) {
    DrawFace(&tracker->source, width, height, width * 0.82, height * 0.6, radius * 0.8);
  }
}

FaceDetector* BuildDetector() {
  FaceCascade* cascade = LoadFaceCascade("", 24, 24);
  FaceDetector* detector = CreateFaceDetector(*cascade);
  ReleaseFaceCascade(cascade);
  return detector;
}

// The picture of 80 x 60 pixels takes the first 9600 of the image's 57600 bytes. The detector looks
// at all of its 160 x 120 pixels, of which that is the first 30 rows: below it still sees the face.
TEST_F(FaceTrackerLifecycle, ARecordSmallerThanItsImageIsSeenWithWhatWasThere) {
  FaceDetector* detector = BuildDetector();
  ASSERT_NE(detector, nullptr);
  Tracker tracker;
  DrawFace(&tracker.source, 320, 240, 160, 150, 50);
  tracker.Init();
  EXPECT_TRUE(tracker.Do());
  const uint8_t* data = DetectionImageData(tracker.record.detectionImage);
  Bytes content(data, data + 57600);
  tracker.source = GreyFrame(320, 240);
  std::generate_n(tracker.source.begin(), tracker.source.size(),
                  [n = 0u]() mutable { return static_cast<uint8_t>(100 + ++n % 7); });
  tracker.record.detectWidth = 80;
  tracker.record.detectHeight = 60;
  const Bytes picture =
      reference::CropScaleYuv16Inside(tracker.source, 320, 240, 80, 60, {0, 0, 320, 240});
  ASSERT_EQ(picture.size(), 9600u);
  std::copy(picture.begin(), picture.end(), content.begin());
  const std::vector<FaceRectangle> faces = FacesIn(content, 160, 120, detector, 1100);
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_GE(faces[0].y, 30);
  tracker.record.srcFrame = tracker.source.data();
  tracker.record.dstFrame = tracker.output.data();
  const reference::TrackedFrame expected =
      reference::TrackFace(tracker.record, tracker.source, faces);
  EXPECT_TRUE(tracker.Do());
  EXPECT_TRUE(std::equal(content.begin(), content.end(), data));
  EXPECT_EQ(Describe(tracker.record), Describe(expected.tracker));
  EXPECT_TRUE(tracker.output == expected.picture);
  tracker.Uninit();
  ReleaseFaceDetector(&detector);
}

TEST_F(FaceTrackerLifecycle, FramesEqualTheReferencesWithTheFacesThatTheDetectorFinds) {
  FaceDetector* detector = BuildDetector();
  ASSERT_NE(detector, nullptr);
  // The last one's rows are skewed for the detector.
  for (const auto& [detectWidth, detectHeight] :
       {std::pair(160, 120), std::pair(320, 240), std::pair(161, 119)}) {
    SCOPED_TRACE(detectWidth);
    Tracker tracker(320, 240, detectWidth, detectHeight);
    tracker.record.resetWhenLost = 1;
    tracker.Init();
    std::map<size_t, int> framesWithFaces;
    for (int frame = 0; frame < 55; ++frame) {
      DrawScene(&tracker, frame);
      tracker.record.srcFrame = tracker.source.data();
      tracker.record.dstFrame = tracker.output.data();
      const std::vector<FaceRectangle> faces = FacesOn(tracker, detector);
      ++framesWithFaces[faces.size()];
      reference::TrackedFrame expected =
          reference::TrackFace(tracker.record, tracker.source, faces);
      expected.lines.insert(expected.lines.begin(), "Kolm: Kolm_FT_DoFaceTracking, 0\n");
      lines.clear();
      ASSERT_TRUE(tracker.Do());
      ASSERT_EQ(lines, expected.lines);
      ASSERT_EQ(Describe(tracker.record), Describe(expected.tracker));
      ASSERT_TRUE(tracker.output == expected.picture);
    }
    if (detectWidth % 4 == 0) {
      EXPECT_GT(framesWithFaces[0], 10);
      EXPECT_GT(framesWithFaces[1], 10);
      EXPECT_GT(framesWithFaces[2], 0);
    }
    EXPECT_EQ(tracker.output, tracker.source);
    tracker.Uninit();
  }
  ReleaseFaceDetector(&detector);
}

TEST_F(FaceTrackerLifecycle, TheCropSettlesAroundAStandingFace) {
  Tracker tracker(640, 480);
  DrawFace(&tracker.source, 640, 480, 250, 260, 70);
  tracker.Init();
  FaceTracker& r = tracker.record;
  for (int frame = 0; frame < 60; ++frame) ASSERT_TRUE(tracker.Do());
  EXPECT_LE(r.cropX, 250 - 70);
  EXPECT_GE(r.cropX + r.cropWidth, 250 + 70);
  EXPECT_LE(r.cropY, 260 - 70);
  EXPECT_GE(r.cropY + r.cropHeight, 260 + 70);
  EXPECT_LT(r.cropWidth, 480);
  const FaceTracker settled = r;
  for (int frame = 0; frame < 20; ++frame) ASSERT_TRUE(tracker.Do());
  EXPECT_EQ(Describe(r), Describe(settled));
  tracker.Uninit();
}

}  // namespace
}  // namespace kolm
