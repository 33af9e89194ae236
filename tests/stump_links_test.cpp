// Stumps in one cascade with larger trees: OpenCV then walks all of them by their links, while it
// takes the leaves of stumps among themselves as they stand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "facetrack/face_detector.h"
#include "platform/detector_runtime.h"
#include "platform/host/host_kernel.h"

namespace kolm {
namespace {

const std::string kFeature = "2 6 4 12 9 0 -1 6 7 12 3 0 3 haar_y3 ";

// Every way through it ends at 0.5.
const std::string kLargerTree = " 2 " + kFeature + "0.5 1 0 " + kFeature + "0.5 -1 -2 0.5 0.5 0.5 ";

// Each window's value is below 99.5 and above -99.5.
const std::string kBelow = " 1 " + kFeature + "99.5 ", kAbove = " 1 " + kFeature + "-99.5 ";

std::string Stage(const std::vector<std::string>& trees, const char* threshold) {
  std::string text = " " + std::to_string(trees.size());
  for (const std::string& tree : trees) text += tree;
  return text.append(" ").append(threshold);
}

// Whether faces are found in noise.
bool Passes(const std::vector<std::string>& records) {
  std::vector<const char*> texts;
  for (const std::string& record : records) texts.push_back(record.c_str());
  texts.push_back(nullptr);
  FaceCascade* const cascade = ReadFaceCascade(texts.data(), 24, 24);
  FaceDetector* detector = CreateFaceDetector(*cascade);
  EXPECT_NE(detector, nullptr);
  ReleaseFaceCascade(cascade);
  void* storage = CreateFaceStorage();
  void* image = CreateDetectionImage(40, 40);
  uint8_t* const data = DetectionImageData(image);
  for (size_t i = 0; i < DetectionImageBytes(image); ++i) {
    data[i] = static_cast<uint8_t>(i / 2 * (i / 2) * 31 >> 3);
  }
  const bool passes = CountFaces(DetectFaces(image, detector, storage, 1100)) > 0;
  ReleaseDetectionImage(&image);
  ReleaseFaceStorage(&storage);
  ReleaseFaceDetector(&detector);
  return passes;
}

class StumpLinks : public testing::Test {
 protected:
  StumpLinks() { EXPECT_TRUE(BeginDetectorRuntime()); }
  ~StumpLinks() override {
    EndDetectorRuntime();
    EXPECT_EQ(host::DescribePoolBlocks(), "");
  }
};

struct Case {
  const char* linksAndLeaves;
  bool passesBelow, passesAbove;
};

constexpr Case kCases[] = {
    {"0 -1 9.5 -9.5 ", true, false},   {"0 -1 -9.5 9.5 ", false, true},
    {"-1 0 9.5 -9.5 ", false, true},   {"-1 0 -9.5 9.5 ", true, false},
    {"0 0 9.5 -9.5 ", true, true},     {"0 0 -9.5 9.5 ", false, false},
    {"-1 -1 9.5 -9.5 ", false, false}, {"-1 -1 -9.5 9.5 ", true, true},
};

TEST_F(StumpLinks, AreFollowedBesideLargerTrees) {
  for (const auto& [stump, passesBelow, passesAbove] : kCases) {
    SCOPED_TRACE(stump);
    for (const auto& [start, passes] :
         {std::pair(kBelow, passesBelow), std::pair(kAbove, passesAbove)}) {
      SCOPED_TRACE(start);
      const std::string tree = start + stump;
      EXPECT_EQ(Passes({Stage({kLargerTree, tree}, "1.55")}), passes);
      EXPECT_EQ(Passes({Stage({tree, kLargerTree}, "1.55")}), passes);
      // A stage of each; and without larger trees.
      EXPECT_EQ(Passes({Stage({kLargerTree}, "0.25"), Stage({tree}, "1.55")}), passes);
      EXPECT_EQ(Passes({Stage({tree}, "1.55")}), passes);
    }
  }
}

}  // namespace
}  // namespace kolm
