// The detector where OpenCV gets no memory: the process is held to hardly more than it has.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

#include "facetrack/face_detector.h"
#include "platform/detector_runtime.h"

namespace kolm {
namespace {

size_t MemoryInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// Takes what is left of the memory, but for blocks of a few kilobytes.
class Scarcity {
 public:
  explicit Scarcity(size_t spareBytes) : rest_(100000) {
    malloc_trim(0);
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    EXPECT_EQ(getrlimit(RLIMIT_AS, &previous_), 0);
    const rlimit tight = {pages * 4096 + spareBytes, previous_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    std::generate(rest_.begin(), rest_.end(), [] { return std::malloc(16384); });
  }
  ~Scarcity() {
    std::for_each(rest_.begin(), rest_.end(), std::free);
    EXPECT_EQ(rest_.back(), nullptr);
    EXPECT_EQ(setrlimit(RLIMIT_AS, &previous_), 0);
  }
  Scarcity(const Scarcity&) = delete;
  Scarcity& operator=(const Scarcity&) = delete;

 private:
  std::vector<void*> rest_;
  rlimit previous_ = {};
};

TEST(DetectorMemory, FindsNothingAndKeepsNothingWithoutIt) {
  ASSERT_TRUE(BeginDetectorRuntime());
  FaceCascade* const cascade = LoadFaceCascade("", 24, 24);
  ASSERT_NE(cascade, nullptr);
  FaceDetector* detector = CreateFaceDetector(*cascade);
  void* storage = CreateFaceStorage();
  void* image = CreateDetectionImage(160, 120);
  ASSERT_NE(detector, nullptr);
  ASSERT_NE(image, nullptr);
  std::memset(DetectionImageData(image), 0, DetectionImageBytes(image));
  const size_t before = MemoryInUse();
  void* noImage;
  const FaceSequence* noFaces;
  FaceDetector* noDetector;
  {
    const Scarcity scarcity(1 << 18);
    noImage = CreateDetectionImage(8000, 8000);
    noFaces = DetectFaces(image, detector, storage, 1100);
    noDetector = CreateFaceDetector(*cascade);
  }
  EXPECT_EQ(noImage, nullptr);
  EXPECT_EQ(noFaces, nullptr);
  EXPECT_EQ(noDetector, nullptr);
  EXPECT_LE(MemoryInUse(), before + 4096);
  EXPECT_NE(DetectFaces(image, detector, storage, 1100), nullptr);
  ReleaseFaceCascade(cascade);
  ReleaseDetectionImage(&image);
  ReleaseFaceStorage(&storage);
  ReleaseFaceDetector(&detector);
  EndDetectorRuntime();
}

}  // namespace
}  // namespace kolm
