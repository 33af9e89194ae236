// The one file that knows OpenCV. OpenCV takes its arguments on trust in places and throws in
// others: what it cannot take is kept from it, and whatever it throws ends here.
#include "facetrack/face_detector.h"

#include <limits.h>
#include <math.h>
#include <opencv2/core/core_c.h>

#include <algorithm>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>
#include <vector>

#include "facetrack/cascade_storage_text.h"
#include "module/memory.h"
#include "platform/detector_runtime.h"

namespace kolm {

struct FaceDetector {
  cv::CascadeClassifier classifier;
  cv::Size window;
  // Of the largest table of sums that the classifier may have made: it never makes one smaller.
  int64_t sumColumns = 0;
  int64_t sumRows = 0;
};

namespace {

constexpr int kNeighbours = 2;
constexpr int kFlags = 1;

// Windows below have no inside to take the brightness of. Above, the step from one window size to
// the next, of up to 4294967, could lead out of 31 bits.
constexpr int32_t kSmallestWindow = 3;
constexpr int32_t kLargestWindow = 400;

// Whether all corners at which the feature's sums are read lie in the window.
bool LiesInWindow(const HaarFeature& feature, const FaceCascade& cascade) {
  return std::all_of(std::begin(feature.rectangles), std::end(feature.rectangles),
                     [&](const CascadeRectangle& rectangle) {
                       const int64_t x = rectangle.x, y = rectangle.y;
                       const int64_t width = rectangle.width, height = rectangle.height;
                       if (x < 0 || x >= cascade.width || y < 0 || y >= cascade.height)
                         return false;
                       if (width < 0 || height < 0 || x + width > cascade.width) return false;
                       // Rotated, the width leads down to the right and the height down to the
                       // left.
                       if (feature.tilted != 0)
                         return x - height >= 0 && y + width + height <= cascade.height;
                       return y + height <= cascade.height;
                     });
}

// Links to nodes lead forward, so that each way through a tree ends at a leaf.
bool IsLink(int32_t link, int32_t node, int32_t nodeCount) {
  return link > 0 ? link > node && link < nodeCount : link >= -nodeCount;
}

bool IsSoundTree(const CascadeTree& tree, const FaceCascade& cascade) {
  if (tree.nodeCount < 1) return false;
  for (int32_t i = 0; i < tree.nodeCount; ++i) {
    const HaarFeature& feature = tree.features[i];
    if (!LiesInWindow(feature, cascade)) return false;
    for (const CascadeRectangle& rectangle : feature.rectangles) {
      if (!isfinite(rectangle.weight)) return false;
    }
    if (!isfinite(tree.thresholds[i])) return false;
    if (!IsLink(tree.left[i], i, tree.nodeCount)) return false;
    if (!IsLink(tree.right[i], i, tree.nodeCount)) return false;
  }
  return std::all_of(tree.leaves, tree.leaves + tree.nodeCount + 1,
                     [](float leaf) { return isfinite(leaf); });
}

bool IsSoundCascade(const FaceCascade& cascade) {
  if (cascade.width < kSmallestWindow || cascade.width > kLargestWindow) return false;
  if (cascade.height < kSmallestWindow || cascade.height > kLargestWindow) return false;
  if (cascade.stageCount < 1) return false;
  return std::all_of(
      cascade.stages, cascade.stages + cascade.stageCount, [&](const CascadeStage& stage) {
        return stage.treeCount >= 1 && isfinite(stage.threshold) &&
               std::all_of(stage.trees, stage.trees + stage.treeCount,
                           [&](const CascadeTree& tree) { return IsSoundTree(tree, cascade); });
      });
}

// The rows that the sums of an image take at most, at all window sizes: each its own rows.
int64_t SumRows(const FaceDetector& detector, cv::Size image, double scale) {
  int64_t rows = 0;
  for (double factor = 1.0; detector.window.width * factor < image.width + 1.0 &&
                            detector.window.height * factor < image.height + 1.0;
       factor *= scale) {
    rows += static_cast<int64_t>(image.height / factor) + 2;
  }
  return rows;
}

// Whether the classifier's sums of such an image have numbers of 31 bits, of which it makes sure
// nowhere. Three tables stand one below the other.
bool MakeRoomForSums(FaceDetector* detector, cv::Size image, double scale) {
  const int64_t columns = std::max<int64_t>(detector->sumColumns, int64_t{image.width} + 64);
  const int64_t rows = std::max(detector->sumRows, SumRows(*detector, image, scale));
  if (rows > INT_MAX / 3 / columns) return false;
  detector->sumColumns = columns;
  detector->sumRows = rows;
  return true;
}

// A picture with rows padded to 4 bytes. OpenCV would lose the memory of one that it makes itself
// if there is none for its description.
struct GrayPicture {
  std::vector<uint8_t> pixels;
  cv::Mat picture;

  explicit GrayPicture(cv::Size size)
      : pixels(size_t{1} * Stride(size) * size.height),
        picture(size, CV_8UC1, pixels.data(), Stride(size)) {}

  static size_t Stride(cv::Size size) { return (size_t{1} * size.width + 3) & ~size_t{3}; }
};

// The luma of the packed pixels follow one another without regard to the rows' padding.
void TakeLuma(const IplImage* image, GrayPicture* gray) {
  const size_t count = gray->picture.total();
  const uint8_t* packed = reinterpret_cast<const uint8_t*>(image->imageData);
  uint8_t* luma = gray->pixels.data();
  for (size_t i = 0; i < count; ++i) luma[i] = packed[2 * i];
}

std::vector<cv::Rect> FindFaces(FaceDetector* detector, const GrayPicture& gray, double scale) {
  std::vector<cv::Rect> faces;
  detector->classifier.detectMultiScale(gray.picture, faces, scale, kNeighbours, kFlags);
  return faces;
}

FaceSequence* Detect(const IplImage* image, FaceDetector* detector, CvMemStorage* storage,
                     double scale) {
  const CvRect region = cvGetImageROI(image);
  const cv::Size size(region.width, region.height);
  if (size.width < detector->window.width || size.height < detector->window.height) return nullptr;
  if (!MakeRoomForSums(detector, size, scale)) return nullptr;
  GrayPicture gray(size);
  TakeLuma(image, &gray);
  const std::vector<cv::Rect> faces = FindFaces(detector, gray, scale);
  CvSeq* const sequence = cvCreateSeq(0, sizeof(CvSeq), sizeof(FaceRectangle), storage);
  for (const cv::Rect& face : faces) {
    const FaceRectangle rectangle = {face.x, face.y, face.width, face.height};
    cvSeqPush(sequence, &rectangle);
  }
  return reinterpret_cast<FaceSequence*>(sequence);
}

// Runs `work`, which may throw, where the stack has room for it, and returns what it returns; null
// if it throws or there is no such room.
template <typename Result, typename Work>
Result* Try(const Work& work) {
  struct Call {
    const Work& work;
    Result* result;
  } call = {work, nullptr};
  CallWithDeepStack(
      [](void* argument) {
        Call* const made = static_cast<Call*>(argument);
        try {
          made->result = made->work();
        } catch (...) {
        }
      },
      &call);
  return call.result;
}

}  // namespace

FaceDetector* CreateFaceDetector(const FaceCascade& cascade) {
  if (!IsSoundCascade(cascade)) return nullptr;
  return Try<FaceDetector>([&]() -> FaceDetector* {
    auto detector = std::make_unique<FaceDetector>();
    detector->window = {cascade.width, cascade.height};
    const cv::FileStorage storage(CascadeStorageText(cascade), cv::FileStorage::READ |
                                                                   cv::FileStorage::MEMORY |
                                                                   cv::FileStorage::FORMAT_JSON);
    if (!detector->classifier.read(storage.root())) return nullptr;
    // The classifier makes its table of features with the first picture. If there were no memory
    // for that it would not notice with the second, and go by a table that is not there: so the
    // first is seen here.
    FindFaces(detector.get(), GrayPicture(detector->window), 2.0);
    return detector.release();
  });
}

void ReleaseFaceDetector(FaceDetector** detector) {
  FaceDetector* const released = *detector;
  *detector = nullptr;
  delete released;
}

void* CreateFaceStorage() {
  return Try<CvMemStorage>([] { return cvCreateMemStorage(0); });
}

void ClearFaceStorage(void* storage) {
  if (storage != nullptr) cvClearMemStorage(static_cast<CvMemStorage*>(storage));
}

void ReleaseFaceStorage(void** storage) {
  CvMemStorage* released = static_cast<CvMemStorage*>(*storage);
  *storage = nullptr;
  cvReleaseMemStorage(&released);
}

void* CreateDetectionImage(uint32_t width, uint32_t height) {
  // Rows may be padded by up to 3 bytes.
  const uint64_t rowBytes = uint64_t{width} * 3 + 3;
  if (width == 0 || height == 0 || rowBytes > INT_MAX / height) return nullptr;
  const CvSize size = cvSize(static_cast<int>(width), static_cast<int>(height));
  void* image = nullptr;
  const bool isMade =
      Try<void>([&]() -> void* {
        image = cvCreateImageHeader(size, IPL_DEPTH_8U, 3);
        cvCreateData(image);
        cvSetImageROI(static_cast<IplImage*>(image), cvRect(0, 0, size.width, size.height));
        return image;
      }) != nullptr;
  if (!isMade) ReleaseDetectionImage(&image);
  return image;
}

void ReleaseDetectionImage(void** image) {
  IplImage* released = static_cast<IplImage*>(*image);
  *image = nullptr;
  cvReleaseImage(&released);
}

uint8_t* DetectionImageData(void* image) {
  if (image == nullptr) return nullptr;
  return reinterpret_cast<uint8_t*>(static_cast<IplImage*>(image)->imageData);
}

size_t DetectionImageBytes(void* image) {
  if (image == nullptr) return 0;
  return static_cast<size_t>(static_cast<IplImage*>(image)->imageSize);
}

const FaceSequence* DetectFaces(void* image, FaceDetector* detector, void* storage,
                                uint32_t scaleFactorMilli) {
  // In single precision, as the steps between window sizes have always been.
  const float scale = static_cast<float>(scaleFactorMilli) / 1000.0f;
  if (image == nullptr || detector == nullptr || storage == nullptr || !(scale > 1.0f)) {
    return nullptr;
  }
  return Try<FaceSequence>([&] {
    return Detect(static_cast<IplImage*>(image), detector, static_cast<CvMemStorage*>(storage),
                  scale);
  });
}

int32_t CountFaces(const FaceSequence* faces) {
  return faces == nullptr ? 0 : reinterpret_cast<const CvSeq*>(faces)->total;
}

FaceRectangle GetFace(const FaceSequence* faces, int32_t index) {
  FaceRectangle face;
  KolmCopy(&face, cvGetSeqElem(reinterpret_cast<const CvSeq*>(faces), index), sizeof face);
  return face;
}

}  // namespace kolm
