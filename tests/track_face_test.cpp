// The tracker's step by hand-made numbers, then beside its reference. Faces are supplied here, in
// place of the detector.
#include "facetrack/track_face.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <memory>
#include <tuple>

#include "platform/host/host_kernel.h"
#include "tests/guarded_buffer.h"
#include "tests/guarded_run.h"
#include "tests/random_case.h"
#include "tests/reference_track_face.h"

namespace kolm {
namespace {

using reference::Bytes;
using reference::Describe;
using Faces = std::vector<FaceRectangle>;
using Lines = std::vector<std::string>;
using Rectangle = std::array<int32_t, 4>;

void FollowFaces(FaceTracker* tracker, const Faces& faces) {
  FaceBox box = NoFace(*tracker);
  for (const FaceRectangle& face : faces) MergeFace(*tracker, face, &box);
  FollowBox(tracker, box);
}

Rectangle Crop(const FaceTracker& t) { return {t.cropX, t.cropY, t.cropWidth, t.cropHeight}; }
Rectangle Target(const FaceTracker& t) {
  return {t.targetX, t.targetY, t.targetWidth, t.targetHeight};
}

constexpr int32_t kWidth = 640, kHeight = 480;
constexpr Rectangle kWhole = {0, 0, kWidth, kHeight};

// Alone, its box is (80, 40, 320, 240), which has the frame's aspect ratio.
constexpr FaceRectangle kFittingFace = {40, 30, 40, 20};
constexpr Rectangle kFittingBox = {80, 40, 320, 240};

class TrackFaceTest : public testing::Test {
 protected:
  TrackFaceTest() : source(size_t{kWidth} * kHeight * 2), output(source.size()) {
    Random random(1, 0);
    std::generate(source.begin(), source.end(),
                  [&] { return static_cast<uint8_t>(random.Bits()); });
    tracker.frameWidth = kWidth;
    tracker.frameHeight = kHeight;
    tracker.detectWidth = 160;
    tracker.detectHeight = 120;
    tracker.scaleFactorMilli = 1100;
    tracker.stepCount = 8;
    tracker.stepIndex = 7;
    SetCrop(kWhole);
    SetTarget(kWhole);
    tracker.srcFrame = source.data();
    tracker.dstFrame = output.data();
  }
  void SetUp() override {
    host::SetDebugSink([this](const std::string& text) { lines.push_back(text); });
  }
  void TearDown() override { host::SetDebugSink(nullptr); }

  void SetCrop(const Rectangle& r) {
    std::tie(tracker.cropX, tracker.cropY, tracker.cropWidth, tracker.cropHeight) =
        std::tuple_cat(r);
  }
  void SetTarget(const Rectangle& r) {
    std::tie(tracker.targetX, tracker.targetY, tracker.targetWidth, tracker.targetHeight) =
        std::tuple_cat(r);
  }
  void SetSteps(int32_t count) {
    tracker.stepCount = count;
    tracker.stepIndex = static_cast<uint32_t>(count) - 1;
  }

  // The frame's lines.
  Lines Follow(const Faces& faces) {
    lines.clear();
    std::fill(output.begin(), output.end(), 0xA5);
    FollowFaces(&tracker, faces);
    return lines;
  }

  // The box of all the faces, without fitting.
  Rectangle Box(const Faces& faces) const {
    FaceBox box = NoFace(tracker);
    for (const FaceRectangle& face : faces) MergeFace(tracker, face, &box);
    return {box.left, box.top, box.width, box.height};
  }

  void ExpectShown(const Rectangle& r) const {
    EXPECT_TRUE(output == reference::CropScaleYuv16Inside(source, kWidth, kHeight, kWidth, kHeight,
                                                          {r[0], r[1], r[2], r[3]}))
        << testing::PrintToString(r) << " is not what is shown";
  }

  uint8_t SourceLuma(int32_t x, int32_t y) const { return source[(y * kWidth + x) * 2]; }
  uint8_t OutputLuma(int32_t x, int32_t y) const { return output[(y * kWidth + x) * 2]; }

  Bytes source, output;
  FaceTracker tracker = {};
  Lines lines;
};

// ---- Boxes ----

TEST_F(TrackFaceTest, MarginsSurroundAFace) {
  EXPECT_EQ(Box({{30, 10, 40, 40}}), Rectangle({40, 0, 320, 280}));
}

TEST_F(TrackFaceTest, MarginsEndAtTheLeftAndUpperEdge) {
  EXPECT_EQ(Box({{5, 50, 30, 30}}), Rectangle({0, 120, 220, 280}));
  EXPECT_EQ(Box({{20, 20, 30, 30}}), Rectangle({0, 0, 280, 280}));
  EXPECT_EQ(Box({{21, 21, 30, 30}}), Rectangle({4, 4, 280, 280}));
  EXPECT_EQ(Box({{0, 0, 30, 30}}), Rectangle({0, 0, 200, 200}));
}

TEST_F(TrackFaceTest, MarginsEndAtTheRightAndLowerEdge) {
  EXPECT_EQ(Box({{120, 80, 30, 30}}), Rectangle({400, 240, 240, 240}));
  // One pixel short of the edge, and right on it.
  EXPECT_EQ(Box({{109, 69, 30, 30}}), Rectangle({356, 196, 280, 280}));
  EXPECT_EQ(Box({{110, 70, 30, 30}}), Rectangle({360, 200, 280, 280}));
  EXPECT_EQ(Box({{111, 71, 30, 30}}), Rectangle({364, 204, 276, 276}));
}

TEST_F(TrackFaceTest, ScalesInThousandthsRoundDown) {
  // 640000 / 150 = 4266, 480000 / 110 = 4363; the box is (10, 4, 80, 70) on the detection picture.
  tracker.detectWidth = 150;
  tracker.detectHeight = 110;
  EXPECT_EQ(Box({{30, 24, 40, 30}}), Rectangle({42, 17, 341, 305}));
}

TEST_F(TrackFaceTest, FacesSideBySideKeepTheLastWidthIfTheLeftOneIsLast) {
  const FaceRectangle left = {30, 40, 20, 20}, right = {100, 40, 20, 20};
  EXPECT_EQ(Box({left, right}), Rectangle({40, 80, 520, 240}));
  EXPECT_EQ(Box({right, left}), Rectangle({40, 80, 240, 240}));
}

TEST_F(TrackFaceTest, FacesAboveEachOtherEndWithTheLastOne) {
  const FaceRectangle upper = {60, 10, 20, 20}, lower = {60, 60, 20, 20};
  EXPECT_EQ(Box({upper, lower}), Rectangle({160, 0, 240, 400}));
  EXPECT_EQ(Box({lower, upper}), Rectangle({160, 0, 240, 200}));
}

TEST_F(TrackFaceTest, AFaceInsideABoxCutsItsWidth) {
  EXPECT_EQ(Box({{40, 40, 60, 40}, {60, 50, 10, 10}}), Rectangle({80, 80, 200, 240}));
}

TEST_F(TrackFaceTest, AFaceThatEndsWhereTheBoxDoesCutsItsWidth) {
  const FaceRectangle first = {40, 40, 60, 40};
  EXPECT_EQ(Box({first}), Rectangle({80, 80, 400, 320}));
  EXPECT_EQ(Box({first, {70, 40, 30, 40}}), Rectangle({80, 80, 280, 320}));
  EXPECT_EQ(Box({first, {71, 40, 30, 40}}), Rectangle({80, 80, 404, 320}));
}

TEST_F(TrackFaceTest, TheScaleInThousandthsIsRoundedFirst) {
  // (15, 11, 75, 55) at 4266 and 4363; in one division it would be (64, 48, 320, 240).
  tracker.detectWidth = 150;
  tracker.detectHeight = 110;
  EXPECT_EQ(Box({{35, 31, 35, 15}}), Rectangle({63, 47, 319, 239}));
}

// ---- A face is found ----

TEST_F(TrackFaceTest, ABoxSmallerThanTheFrameIsAFace) {
  const auto isFace = [this](int32_t width, int32_t height) {
    SetSteps(8);
    SetCrop(kWhole);
    SetTarget(kWhole);
    lines.clear();
    FollowBox(&tracker, {0, 0, width, height});
    return lines.size() == 2;
  };
  EXPECT_TRUE(isFace(320, 240));
  EXPECT_TRUE(isFace(639, 240));
  EXPECT_FALSE(isFace(640, 240));
  EXPECT_FALSE(isFace(641, 240));
  EXPECT_TRUE(isFace(320, 479));
  EXPECT_FALSE(isFace(320, 480));
  EXPECT_FALSE(isFace(320, 481));
  EXPECT_TRUE(isFace(1, 240));
  EXPECT_FALSE(isFace(0, 240));
  EXPECT_FALSE(isFace(-1, 240));
  EXPECT_TRUE(isFace(320, 1));
  EXPECT_FALSE(isFace(320, 0));
  EXPECT_FALSE(isFace(320, -1));
}

TEST_F(TrackFaceTest, ANewFaceBeginsAMove) {
  EXPECT_EQ(Follow({{30, 10, 40, 40}}),
            Lines({"YUV16_Face 1........... 40, 0, 320, 280\n",
                   "YUV16_Face x, y, w, h........... 40, 0, 373, 280\n"}));
  EXPECT_EQ(Target(tracker), Rectangle({40, 0, 373, 280}));
  EXPECT_EQ(Crop(tracker), Rectangle({5, 0, 607, 455}));
  EXPECT_EQ(tracker.stepIndex, 1u);
  ExpectShown({5, 0, 607, 455});
}

TEST_F(TrackFaceTest, AStillFaceOfAnotherAspectRatioBeginsAMoveEachFrame) {
  Follow({{30, 10, 40, 40}});
  EXPECT_EQ(Follow({{30, 10, 40, 40}}).size(), 2u);
  EXPECT_EQ(Target(tracker), Rectangle({40, 0, 373, 280}));
  // (40 - 5) / 8 = 4, (373 - 607) / 8 = -29, (280 - 455) / 8 = -21
  EXPECT_EQ(Crop(tracker), Rectangle({9, 0, 578, 434}));
  EXPECT_EQ(tracker.stepIndex, 1u);
  ExpectShown({9, 0, 578, 434});
  // Less than 8 pixels away nothing moves any more.
  for (int frame = 0; frame < 100; ++frame) Follow({{30, 10, 40, 40}});
  EXPECT_EQ(Crop(tracker), Rectangle({33, 0, 380, 287}));
}

TEST_F(TrackFaceTest, AStillFaceOfTheFramesAspectRatioIsReachedInEqualSteps) {
  EXPECT_EQ(Follow({kFittingFace}), Lines({"YUV16_Face 1........... 80, 40, 320, 240\n",
                                           "YUV16_Face x, y, w, h........... 80, 40, 320, 240\n"}));
  EXPECT_EQ(Target(tracker), kFittingBox);
  EXPECT_EQ(Crop(tracker), Rectangle({10, 5, 600, 450}));
  for (int32_t step = 2; step <= 7; ++step) {
    EXPECT_EQ(Follow({kFittingFace}), Lines({"YUV16_Face 1........... 80, 40, 320, 240\n"}));
    const Rectangle expected = {10 * step, 5 * step, 640 - 40 * step, 480 - 30 * step};
    EXPECT_EQ(Crop(tracker), expected);
    EXPECT_EQ(tracker.stepIndex, static_cast<uint32_t>(step));
    ExpectShown(expected);
  }
  for (int frame = 0; frame < 3; ++frame) {
    Follow({kFittingFace});
    EXPECT_EQ(Crop(tracker), kFittingBox);
    EXPECT_EQ(tracker.stepIndex, 7u);
    ExpectShown(kFittingBox);
  }
}

TEST_F(TrackFaceTest, AFaceForgetsTheMisses) {
  tracker.missCount = 5;
  Follow({{30, 10, 40, 40}});
  EXPECT_EQ(tracker.missCount, 0u);
  SetTarget(kFittingBox);
  tracker.missCount = 5;
  tracker.stepIndex = 2;
  Follow({kFittingFace});
  EXPECT_EQ(tracker.missCount, 0u);
  tracker.missCount = 5;
  tracker.stepIndex = 7;
  Follow({kFittingFace});
  EXPECT_EQ(tracker.missCount, 0u);
}

TEST_F(TrackFaceTest, ATargetThatDiffersInOneValueIsAnother) {
  for (size_t i = 0; i < 4; ++i) {
    for (const int32_t difference : {-1, 1}) {
      Rectangle other = kFittingBox;
      other[i] += difference;
      SetTarget(other);
      SetSteps(8);
      EXPECT_EQ(Follow({kFittingFace}).size(), 2u);
      EXPECT_EQ(Target(tracker), kFittingBox);
      EXPECT_EQ(tracker.stepIndex, 1u);
    }
  }
}

TEST_F(TrackFaceTest, ABoxThatGrowsWideMovesLeftIntoTheFrame) {
  // 640 * 240 / 480 = 320 wide from 400 on would end at 720.
  EXPECT_EQ(Follow({{120, 80, 30, 30}})[1],
            "YUV16_Face x, y, w, h........... 319, 240, 320, 240\n");
}

TEST_F(TrackFaceTest, ABoxThatGrowsHighMovesUpIntoTheFrame) {
  EXPECT_EQ(Follow({{40, 90, 80, 10}}),
            Lines({"YUV16_Face 1........... 80, 280, 480, 200\n",
                   "YUV16_Face x, y, w, h........... 80, 119, 480, 360\n"}));
}

TEST_F(TrackFaceTest, ABoxThatEndsOnTheFramesEdgeMovesByOne) {
  // 480 * 360 / 480 = 360 high: from 120 on it would end at 480.
  EXPECT_EQ(Follow({{40, 50, 80, 10}})[1], "YUV16_Face x, y, w, h........... 80, 119, 480, 360\n");
}

TEST_F(TrackFaceTest, ABoxOfTheFramesAspectRatioStaysAtTheRightEdge) {
  EXPECT_EQ(Follow({{100, 30, 40, 20}}),
            Lines({"YUV16_Face 1........... 320, 40, 320, 240\n",
                   "YUV16_Face x, y, w, h........... 320, 40, 320, 240\n"}));
  // At the lower edge the height, though it grows by nothing, makes it move.
  EXPECT_EQ(Follow({{100, 80, 40, 20}}),
            Lines({"YUV16_Face 1........... 320, 240, 320, 240\n",
                   "YUV16_Face x, y, w, h........... 320, 239, 320, 240\n"}));
}

TEST_F(TrackFaceTest, TheFirstStepIsNotClamped) {
  SetCrop({-40, -80, 1000, 900});
  Follow({kFittingFace});
  EXPECT_EQ(Crop(tracker), Rectangle({-25, -65, 915, 818}));
  ExpectShown({-25, -65, 915, 818});
}

TEST_F(TrackFaceTest, OneStepReachesANewTargetAtOnce) {
  SetSteps(1);
  Follow({{30, 10, 40, 40}});
  EXPECT_EQ(Crop(tracker), Rectangle({40, 0, 373, 280}));
  EXPECT_EQ(tracker.stepIndex, 1u);
  ExpectShown({40, 0, 373, 280});
  Follow({kFittingFace});
  EXPECT_EQ(Crop(tracker), kFittingBox);
  Follow({kFittingFace});
  EXPECT_EQ(Crop(tracker), kFittingBox);
  EXPECT_EQ(tracker.stepIndex, 1u);
  Follow({});
  EXPECT_EQ(Crop(tracker), kFittingBox);
  ExpectShown(kFittingBox);
}

// ---- No face ----

TEST_F(TrackFaceTest, TheSettledWholeFrameIsCopied) {
  for (int frame = 0; frame < 20; ++frame) {
    EXPECT_EQ(Follow({}), Lines({"YUV16_Face 1........... 640, 480, 0, 0\n"}));
    EXPECT_EQ(output, source);
  }
  EXPECT_EQ(Crop(tracker), kWhole);
  EXPECT_EQ(tracker.stepIndex, 7u);
  EXPECT_EQ(tracker.missCount, 0u);
}

TEST_F(TrackFaceTest, TheCopyLeavesTheCropAlone) {
  SetCrop({27, 14, 533, 400});
  SetTarget({9, 9, kWidth, kHeight});
  Follow({});
  EXPECT_EQ(output, source);
  EXPECT_EQ(Crop(tracker), Rectangle({27, 14, 533, 400}));
}

TEST_F(TrackFaceTest, OnlyASettledWholeFrameWithoutBoxIsCopied) {
  const Rectangle before = {27, 14, 533, 400};
  const auto isCopied = [&](const FaceBox& box, const Rectangle& target) {
    SetCrop(before);
    SetTarget(target);
    std::fill(output.begin(), output.end(), 0xA5);
    FollowBox(&tracker, box);
    EXPECT_EQ(Crop(tracker) == before, output == source);
    if (output != source) {
      EXPECT_EQ(Crop(tracker), target);
      ExpectShown(target);
    }
    return output == source;
  };
  const Rectangle moved = {8, 6, kWidth, kHeight};
  EXPECT_TRUE(isCopied({kWidth, kHeight, 0, 0}, moved));
  EXPECT_TRUE(isCopied({0, 0, 0, 100}, moved));
  EXPECT_TRUE(isCopied({0, 0, 100, 0}, moved));
  EXPECT_FALSE(isCopied({0, 0, kWidth, kHeight}, moved));
  EXPECT_FALSE(isCopied({0, 0, kWidth, 1}, moved));
  EXPECT_FALSE(isCopied({0, 0, 1, kHeight}, moved));
  EXPECT_FALSE(isCopied({kWidth, kHeight, 0, 0}, {0, 0, kWidth - 1, kHeight}));
  EXPECT_FALSE(isCopied({kWidth, kHeight, 0, 0}, {0, 0, kWidth, kHeight - 1}));
  tracker.stepIndex = 6;
  SetCrop(kWhole);
  SetTarget(kWhole);
  FollowBox(&tracker, {kWidth, kHeight, 0, 0});
  EXPECT_EQ(Crop(tracker), Rectangle({-1, -1, kWidth, kHeight}));
}

TEST_F(TrackFaceTest, ABoxLargerThanTheFrameIsNoFace) {
  tracker.resetWhenLost = 1;
  SetTarget(kFittingBox);
  FollowBox(&tracker, {0, 0, 700, 500});
  EXPECT_EQ(lines, Lines({"YUV16_Face 1........... 0, 0, 700, 500\n"}));
  EXPECT_EQ(tracker.missCount, 1u);
  EXPECT_EQ(Crop(tracker), kFittingBox);
  ExpectShown(kFittingBox);
}

TEST_F(TrackFaceTest, ABoxAsLargeAsTheFrameIsNoFace) {
  tracker.resetWhenLost = 1;
  tracker.missCount = 3;
  EXPECT_EQ(Follow({{10, 40, 140, 20}}), Lines({"YUV16_Face 1........... 0, 80, 640, 240\n"}));
  EXPECT_EQ(tracker.missCount, 4u);
  ExpectShown(kWhole);
  EXPECT_EQ(Follow({{50, 10, 20, 100}}), Lines({"YUV16_Face 1........... 120, 0, 240, 480\n"}));
  EXPECT_EQ(tracker.missCount, 5u);
  // The same without a box would be the copy, which counts nothing.
  Follow({});
  EXPECT_EQ(tracker.missCount, 5u);
}

TEST_F(TrackFaceTest, AMoveIsFinishedWithoutTheFace) {
  Follow({kFittingFace});
  for (int32_t step = 2; step <= 7; ++step) {
    Follow({});
    EXPECT_EQ(Crop(tracker), Rectangle({10 * step, 5 * step, 640 - 40 * step, 480 - 30 * step}));
  }
  Follow({});
  EXPECT_EQ(Crop(tracker), kFittingBox);
  ExpectShown(kFittingBox);
}

TEST_F(TrackFaceTest, WithoutResetTheLastCropStays) {
  SetCrop(kFittingBox);
  SetTarget(kFittingBox);
  for (int frame = 0; frame < 50; ++frame) Follow({});
  EXPECT_EQ(Crop(tracker), kFittingBox);
  EXPECT_EQ(tracker.missCount, 0u);
  ExpectShown(kFittingBox);
}

TEST_F(TrackFaceTest, WithResetTheWholeFrameComesBack) {
  SetSteps(3);
  SetCrop(kFittingBox);
  SetTarget(kFittingBox);
  tracker.resetWhenLost = -1;
  for (uint32_t miss = 1; miss <= 3; ++miss) {
    Follow({});
    EXPECT_EQ(tracker.missCount, miss);
    EXPECT_EQ(Target(tracker), kFittingBox);
  }
  Follow({});
  EXPECT_EQ(tracker.missCount, 0u);
  EXPECT_EQ(tracker.stepIndex, 0u);
  EXPECT_EQ(Target(tracker), kWhole);
  EXPECT_EQ(Crop(tracker), kFittingBox);
  ExpectShown(kFittingBox);
  // -80 / 3 = -26, -40 / 3 = -13, 320 / 3 = 106, 240 / 3 = 80
  Follow({});
  EXPECT_EQ(Crop(tracker), Rectangle({54, 27, 426, 320}));
  ExpectShown({54, 27, 426, 320});
  Follow({});
  EXPECT_EQ(Crop(tracker), Rectangle({27, 14, 533, 400}));
  EXPECT_EQ(tracker.stepIndex, 2u);
  Follow({});
  EXPECT_EQ(output, source);
  EXPECT_EQ(Crop(tracker), Rectangle({27, 14, 533, 400}));
  EXPECT_EQ(tracker.missCount, 0u);
}

TEST_F(TrackFaceTest, StepsOfAWholeFrameAreShownFromMinusOne) {
  tracker.stepIndex = 0;
  for (uint32_t step = 1; step <= 7; ++step) {
    Follow({});
    EXPECT_EQ(Crop(tracker), Rectangle({-1, -1, kWidth, kHeight}));
    EXPECT_EQ(tracker.stepIndex, step);
  }
  ExpectShown({-1, -1, kWidth, kHeight});
  // The row before the frame is the first one; left of it stands the frame's first pair.
  EXPECT_EQ(OutputLuma(0, 0), SourceLuma(1, 0));
  EXPECT_EQ(OutputLuma(1, 0), SourceLuma(0, 0));
  EXPECT_EQ(OutputLuma(639, 0), SourceLuma(638, 0));
  EXPECT_EQ(OutputLuma(0, 1), SourceLuma(1, 0));
  EXPECT_EQ(OutputLuma(1, 1), SourceLuma(0, 0));
  // Left of the other rows stands the end of the row above.
  EXPECT_EQ(OutputLuma(0, 2), SourceLuma(639, 0));
  EXPECT_EQ(OutputLuma(0, 479), SourceLuma(639, 477));
  EXPECT_EQ(OutputLuma(1, 479), SourceLuma(0, 478));
  Follow({});
  EXPECT_EQ(output, source);
}

TEST_F(TrackFaceTest, OneSideAloneIsShownFromMinusOne) {
  const Rectangle wide = {0, 100, kWidth, 200};
  tracker.stepIndex = 6;
  SetCrop(wide);
  SetTarget(wide);
  Follow({});
  EXPECT_EQ(Crop(tracker), Rectangle({-1, 100, kWidth, 200}));
  ExpectShown({-1, 100, kWidth, 200});
  EXPECT_EQ(OutputLuma(0, 0), SourceLuma(639, 99));
  EXPECT_EQ(OutputLuma(1, 0), SourceLuma(0, 100));
  EXPECT_EQ(OutputLuma(639, 0), SourceLuma(638, 100));
  EXPECT_EQ(OutputLuma(0, 479), SourceLuma(639, 298));
  EXPECT_EQ(OutputLuma(1, 479), SourceLuma(0, 299));

  const Rectangle high = {100, 0, 200, kHeight};
  tracker.stepIndex = 6;
  SetCrop(high);
  SetTarget(high);
  Follow({});
  EXPECT_EQ(Crop(tracker), Rectangle({100, -1, 200, kHeight}));
  ExpectShown({100, -1, 200, kHeight});
  EXPECT_EQ(OutputLuma(0, 0), SourceLuma(100, 0));
  EXPECT_EQ(OutputLuma(0, 1), SourceLuma(100, 0));
  EXPECT_EQ(OutputLuma(0, 2), SourceLuma(100, 1));
  EXPECT_EQ(OutputLuma(639, 479), SourceLuma(299, 478));
}

TEST_F(TrackFaceTest, StepsAreClampedToTheFrame) {
  tracker.stepIndex = 6;  // 2 steps to go
  SetCrop({-20, 300, 100, 700});
  SetTarget({-10, 200, -200, 500});
  Follow({});
  // (-15, 250, -50, 600) becomes (0, 250, 0, 480), and 250 + 480 is beyond the frame.
  EXPECT_EQ(Crop(tracker), Rectangle({0, -1, 0, 480}));
  EXPECT_EQ(tracker.stepIndex, 7u);
  ExpectShown({0, -1, 0, 480});
}

TEST_F(TrackFaceTest, AStepThatEndsOnTheFramesEdgeMovesByOne) {
  tracker.stepIndex = 6;
  SetCrop({240, 180, 400, 300});
  SetTarget({240, 180, 400, 300});
  Follow({});
  EXPECT_EQ(Crop(tracker), Rectangle({239, 179, 400, 300}));
  SetCrop({239, 179, 400, 300});
  SetTarget({239, 179, 400, 300});
  tracker.stepIndex = 6;
  Follow({});
  EXPECT_EQ(Crop(tracker), Rectangle({239, 179, 400, 300}));
}

TEST_F(TrackFaceTest, AStepIndexBeyondTheMoveIsSettled) {
  tracker.stepIndex = 0xFFFFFFFF;
  Follow({});
  EXPECT_EQ(output, source);
  EXPECT_EQ(tracker.stepIndex, 0xFFFFFFFF);
}

// ---- Records that no client should make ----

TEST_F(TrackFaceTest, NoStepsMoveNothing) {
  tracker.stepCount = 0;
  Follow({kFittingFace});
  EXPECT_EQ(Crop(tracker), kWhole);
  EXPECT_EQ(Target(tracker), kFittingBox);
  ExpectShown(kWhole);
}

// Counts are compared without sign.
TEST_F(TrackFaceTest, ANegativeStepCountIsALargeOne) {
  tracker.resetWhenLost = 1;
  tracker.stepCount = -2;
  tracker.stepIndex = 0xFFFFFFFD;
  SetTarget(kFittingBox);
  tracker.missCount = 5;
  Follow({});
  EXPECT_EQ(tracker.missCount, 6u);
  EXPECT_EQ(Target(tracker), kFittingBox);
  tracker.missCount = 0xFFFFFFFD;
  Follow({});
  EXPECT_EQ(tracker.missCount, 0xFFFFFFFE);
  EXPECT_EQ(Target(tracker), kFittingBox);
  Follow({});
  EXPECT_EQ(tracker.missCount, 0u);
  EXPECT_EQ(tracker.stepIndex, 0u);
  EXPECT_EQ(Target(tracker), kWhole);
  EXPECT_EQ(Crop(tracker), kFittingBox);
}

TEST_F(TrackFaceTest, AFrameWithoutSizeIsNotWritten) {
  const Bytes untouched(source.size(), 0xA5);
  for (const uint32_t width : {0u, 640u, 0x80000000u, 0xFFFFFFFFu}) {
    for (const uint32_t height : {0u, 480u, 0x80000000u, 0xFFFFFFFFu}) {
      if (width == 640 && height == 480) continue;
      tracker.frameWidth = width;
      tracker.frameHeight = height;
      SetTarget(kFittingBox);
      Follow({});
      EXPECT_EQ(output, untouched);
      SetTarget({0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)});
      Follow({});
      EXPECT_EQ(output, untouched);
    }
  }
}

TEST_F(TrackFaceTest, ATrackerWithoutDetectorOrImageIsLeftAlone) {
  const Bytes untouched(output.size(), 0xA5);
  std::fill(output.begin(), output.end(), 0xA5);
  const FaceTracker before = tracker;
  TrackFace(&tracker, nullptr);
  void* image = CreateDetectionImage(160, 120);
  tracker.detectionImage = image;
  TrackFace(&tracker, nullptr);
  tracker.detectionImage = nullptr;
  ReleaseDetectionImage(&image);
  EXPECT_EQ(Describe(tracker), Describe(before));
  EXPECT_EQ(output, untouched);
  EXPECT_TRUE(lines.empty());
}

TEST_F(TrackFaceTest, ADetectionPictureMustFitItsImage) {
  tracker.detectionImage = CreateDetectionImage(160, 120);
  ASSERT_NE(tracker.detectionImage, nullptr);
  const auto fits = [this](int32_t width, int32_t height) {
    tracker.detectWidth = width;
    tracker.detectHeight = height;
    return DetectionPictureFits(tracker);
  };
  EXPECT_TRUE(fits(160, 120));
  // 57600 bytes hold 160 x 180 pixels, and not one row more.
  EXPECT_TRUE(fits(160, 180));
  EXPECT_FALSE(fits(160, 181));
  EXPECT_TRUE(fits(239, 120));
  EXPECT_FALSE(fits(241, 120));
  for (const int32_t none : {0, -1, INT_MIN}) {
    EXPECT_FALSE(fits(none, 120));
    EXPECT_FALSE(fits(160, none));
    EXPECT_FALSE(fits(none, none));
  }
  EXPECT_FALSE(fits(INT_MAX, INT_MAX));
  EXPECT_FALSE(fits(INT_MAX - 1, INT_MAX));
  ReleaseDetectionImage(&tracker.detectionImage);
  EXPECT_FALSE(fits(160, 120));
}

// ---- Beside the reference ----

int32_t AnyNumber(Random& random) {
  switch (random.Between(0, 3)) {
    case 0:
      return random.Pick<int32_t>({0, 1, -1, 2, 7, -7, INT_MIN, INT_MIN + 1, INT_MAX});
    case 1:
      return static_cast<int32_t>(random.Between(0, 2000)) - 1000;
    default:
      return static_cast<int32_t>(random.Bits());
  }
}

int32_t Below(Random& random, int32_t limit) {
  return static_cast<int32_t>(random.Between(0, static_cast<uint32_t>(std::max(limit, 1) - 1)));
}

// Where faces may be: a spoilt record says anything.
std::pair<int32_t, int32_t> DetectionSize(const FaceTracker& t) {
  return {std::clamp(t.detectWidth, 1, 1000), std::clamp(t.detectHeight, 1, 1000)};
}

FaceRectangle RandomFace(Random& random, const FaceTracker& t) {
  if (random.OneIn(100)) {
    return {AnyNumber(random), AnyNumber(random), AnyNumber(random), AnyNumber(random)};
  }
  const auto [width, height] = DetectionSize(t);
  const int32_t side = 1 + Below(random, height);
  return {Below(random, width - side), Below(random, height - side), side, side};
}

// With its margins, a part of the detection picture of the picture's own aspect ratio.
FaceRectangle FaceOfTheFramesShape(Random& random, const FaceTracker& t) {
  const auto [width, height] = DetectionSize(t);
  const int32_t parts = 1 + Below(random, 8), part = 1 + Below(random, parts);
  const int32_t faceWidth = width / parts * part, faceHeight = height / parts * part;
  return {20 + Below(random, width - faceWidth), 20 + Below(random, height - faceHeight),
          faceWidth - 40, faceHeight - 40};
}

// The next frame's faces: mostly those of the frame before.
Faces NextFaces(Random& random, const FaceTracker& t, Faces faces) {
  switch (random.Between(0, 11)) {
    case 0:
      return {};
    case 1:
      return {FaceOfTheFramesShape(random, t)};
    case 2:
      faces.push_back(RandomFace(random, t));
      return faces;
    case 3:
      if (!faces.empty()) faces.erase(faces.begin());
      return faces;
    case 4:
      std::reverse(faces.begin(), faces.end());
      return faces;
    case 5:
      for (FaceRectangle& face : faces) {
        face.x = static_cast<int32_t>(static_cast<uint32_t>(face.x) + random.Between(0, 4) - 2);
        face.y = static_cast<int32_t>(static_cast<uint32_t>(face.y) + random.Between(0, 4) - 2);
      }
      return faces;
    default:
      return faces;
  }
}

FaceTracker RandomTracker(Random& random) {
  FaceTracker t = {};
  const bool large = random.OneIn(12);
  t.detectWidth = 2 + Below(random, large ? 320 : 100);
  t.detectHeight = 2 + Below(random, large ? 240 : 60);
  const int32_t factor = 1 + Below(random, 4);
  // Whole factors make boxes of exactly the frame's aspect ratio.
  const bool whole = random.OneIn(2);
  t.frameWidth = static_cast<uint32_t>(whole ? t.detectWidth * factor
                                             : 2 + Below(random, large ? 1300 : 200)) +
                 1;
  t.frameWidth -= t.frameWidth % 2;
  if (whole && t.frameWidth != static_cast<uint32_t>(t.detectWidth * factor)) t.frameWidth = 64;
  t.frameHeight =
      static_cast<uint32_t>(whole ? t.detectHeight * factor : 1 + Below(random, large ? 800 : 120));
  t.scaleFactorMilli = 1100;
  t.stepCount = random.Pick<int32_t>({1, 1, 2, 3, 5, 8, 15});
  t.stepIndex = random.OneIn(3) ? 0 : static_cast<uint32_t>(t.stepCount) - 1;
  t.resetWhenLost = random.OneIn(3) ? 0 : 1;
  t.cropWidth = t.targetWidth = static_cast<int32_t>(t.frameWidth);
  t.cropHeight = t.targetHeight = static_cast<int32_t>(t.frameHeight);
  return t;
}

// Makes any of the record's numbers anything, but for the frame's size: that is the buffers'.
void SpoilRecord(Random& random, FaceTracker* t) {
  for (int32_t* field :
       {&t->detectWidth, &t->detectHeight, &t->stepCount, &t->cropX, &t->cropY, &t->cropWidth,
        &t->cropHeight, &t->targetX, &t->targetY, &t->targetWidth, &t->targetHeight}) {
    if (random.OneIn(4)) *field = AnyNumber(random);
  }
  for (uint32_t* field : {&t->missCount, &t->stepIndex}) {
    if (random.OneIn(4)) *field = static_cast<uint32_t>(AnyNumber(random));
  }
  for (uint32_t* field : {&t->frameWidth, &t->frameHeight}) {
    if (random.OneIn(20)) *field = random.Pick<uint32_t>({0, 0x80000000, 0xFFFFFFFF});
  }
}

std::string RunBesideReference(Random& random, FaceTracker tracker, int frames,
                               uint64_t* statesSeen) {
  using Flush = GuardedBuffer::Flush;
  const size_t bytes = size_t{tracker.frameWidth} * tracker.frameHeight * 2;
  const Bytes picture = RandomPicture(random, bytes, size_t{tracker.frameWidth} * 2);
  const Flush flush = random.OneIn(2) ? Flush::End : Flush::Start;
  GuardedBuffer source(bytes, flush), output(bytes, flush);
  std::copy(picture.begin(), picture.end(), source.data());
  source.MakeReadOnly();
  tracker.srcFrame = source.data();
  tracker.dstFrame = output.data();
  const bool hostile = random.OneIn(4);
  const HeldInstructionSet held(random.Pick(InstructionSets()));
  const Bytes untouched(bytes, 0xA5);

  Lines lines;
  host::SetDebugSink([&](const std::string& text) { lines.push_back(text); });
  const std::shared_ptr<void> noSink(nullptr, [](void*) { host::SetDebugSink(nullptr); });
  Faces faces;
  for (int frame = 0; frame < frames; ++frame) {
    FaceTracker before = tracker;
    if (hostile && random.OneIn(3)) SpoilRecord(random, &before);
    faces = NextFaces(random, before, faces);
    std::string description = Describe(before) + ", faces";
    for (const FaceRectangle& face : faces) {
      for (const int32_t number : {face.x, face.y, face.width, face.height}) {
        description += ' ' + std::to_string(number);
      }
    }
    DescribeCase(description);
    const reference::TrackedFrame expected = reference::TrackFace(before, picture, faces);
    FaceTracker after = before;
    lines.clear();
    std::copy(untouched.begin(), untouched.end(), output.data());
    FollowFaces(&after, faces);
    if (Describe(after) != Describe(expected.tracker)) {
      return "the tracker is " + Describe(after) + " instead of " + Describe(expected.tracker);
    }
    if (lines != expected.lines) return testing::PrintToString(lines);
    const Bytes& shown = expected.picture.value_or(untouched);
    if (!std::equal(shown.begin(), shown.end(), output.data())) return "the picture differs";
    if (!output.CanaryIntact()) return "bytes beside the output were written";
    // Neither the frame's size nor numbers that were spoilt last for long.
    after.frameWidth = tracker.frameWidth;
    after.frameHeight = tracker.frameHeight;
    if (hostile && random.OneIn(8)) {
      const FaceTracker sound = RandomTracker(random);
      after.detectWidth = sound.detectWidth;
      after.detectHeight = sound.detectHeight;
      after.stepCount = sound.stepCount;
    }
    const bool moves = before.stepIndex < static_cast<uint32_t>(before.stepCount) - 1;
    *statesSeen |= uint64_t{1} << (lines.size() - 1 + (moves ? 2 : 0) + (picture == shown ? 4 : 0) +
                                   (after.cropX == -1 ? 8 : 0));
    tracker = after;
  }
  return "";
}

TEST(RandomTrackFace, FramesEqualTheReferences) {
  uint64_t statesSeen = 0;
  ForEachRandomCase(600, [&](Random& random) {
    return RunBesideReference(random, RandomTracker(random), 40, &statesSeen);
  });
  if (std::getenv("KOLM_TEST_CASE") != nullptr) return;
  // Every kind of frame came up: settled and moving, with and without a new target, the copy, -1.
  for (const int state : {0, 1, 2, 3, 4, 10}) {
    EXPECT_TRUE(statesSeen >> state & 1) << "no frame of kind " << state;
  }
}

TEST(RandomTrackFace, CameraFramesEqualTheReferences) {
  uint64_t statesSeen = 0;
  ForEachRandomCase(6, [&](Random& random) {
    FaceTracker tracker = RandomTracker(random);
    tracker.frameWidth = 640;
    tracker.frameHeight = 480;
    tracker.detectWidth = 160;
    tracker.detectHeight = 120;
    tracker.cropWidth = tracker.targetWidth = 640;
    tracker.cropHeight = tracker.targetHeight = 480;
    return RunBesideReference(random, tracker, 30, &statesSeen);
  });
}

}  // namespace
}  // namespace kolm
