// The cascade's reader over any records, and the detector built from what was read.
#include <string>

#include "facetrack/face_detector.h"
#include "fuzz/fuzz_case.h"
#include "platform/host/host_kernel.h"

using namespace kolm;

namespace {

[[noreturn]] void Fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::abort();
}

// What records are made of, so that few bytes make whole trees.
constexpr const char* kPieces[] = {" ",
                                   "-",
                                   ".",
                                   "0",
                                   "7",
                                   "99999",
                                   "+",
                                   "x",
                                   "\n",
                                   " 0",
                                   " 1",
                                   " 2",
                                   " 3",
                                   " 5",
                                   " 9",
                                   " -1",
                                   " -2",
                                   " 12",
                                   " 2147483647",
                                   " a",
                                   " tilted",
                                   " 0.5",
                                   " -9.5",
                                   " 0.031512",
                                   " 1 1 2 2 2 8 8 0 -1 4 2 4 8 0 2 a 0.5 0 -1 -1.5 1.5 ",
                                   " 1 1 1 6 0 6 6 0 -1 tilted",
                                   " 2 1 0 5 7 6 0 3 1 1 1 1 0 -1 upright -0.25",
                                   "  -0.55\n"};

// The input as it is, or as pieces.
std::string Text(const uint8_t* data, size_t size) {
  if (size == 0 || data[0] % 4 == 0) return {data, data + size};
  std::string text;
  for (const uint8_t byte : std::vector(data + 1, data + size)) {
    text += kPieces[byte % std::size(kPieces)];
  }
  return text;
}

// One record a line, each in a heap block that ends with its zero.
std::vector<std::unique_ptr<fuzz::Block>> Records(const std::string& text) {
  std::vector<std::unique_ptr<fuzz::Block>> records;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find_first_of(std::string("\n\0", 2), begin), text.size());
    const size_t length = end - begin;
    records.push_back(std::make_unique<fuzz::Block>(length + 1, 0));
    std::copy_n(text.data() + begin, length, records.back()->data());
    records.back()->data()[length] = 0;
    begin = end + 1;
  }
  return records;
}

// Each float is only looked at, so that the sanitizer sees whether it is there.
float Sum(const FaceCascade& cascade) {
  float sum = 0.0f;
  for (int32_t i = 0; i < cascade.stageCount; ++i) {
    for (int32_t j = 0; j < cascade.stages[i].treeCount; ++j) {
      const CascadeTree& tree = cascade.stages[i].trees[j];
      for (int32_t k = 0; k < tree.nodeCount; ++k) {
        sum += tree.thresholds[k] + tree.features[k].rectangles[2].weight;
      }
      if (tree.nodeCount >= 0) sum += tree.leaves[tree.nodeCount];
    }
    sum += cascade.stages[i].threshold;
  }
  return sum;
}

void Look(FaceDetector* detector) {
  void* storage = CreateFaceStorage();
  void* image = CreateDetectionImage(37, 31);
  uint8_t* const picture = DetectionImageData(image);
  for (size_t i = 0; i < DetectionImageBytes(image); ++i) {
    picture[i] = static_cast<uint8_t>(i * i * 29 >> 4);
  }
  const FaceSequence* const faces = DetectFaces(image, detector, storage, 1200);
  for (int32_t i = 0; i < CountFaces(faces); ++i) {
    const FaceRectangle face = GetFace(faces, i);
    if (face.x < 0 || face.y < 0 || face.width < 1 || face.height < 1 || face.x + face.width > 37 ||
        face.y + face.height > 31) {
      Fail("a face outside the image");
    }
  }
  ReleaseDetectionImage(&image);
  ReleaseFaceStorage(&storage);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::unique_ptr<fuzz::Block>> records = Records(Text(data, size));
  std::vector<const char*> texts;
  for (const auto& record : records) texts.push_back(reinterpret_cast<const char*>(record->data()));
  texts.push_back(nullptr);
  FaceCascade* const cascade = ReadFaceCascade(texts.data(), 12, 12);
  if (cascade == nullptr) Fail("no cascade");
  volatile float sum = Sum(*cascade);
  static_cast<void>(sum);
  FaceDetector* detector = CreateFaceDetector(*cascade);
  ReleaseFaceCascade(cascade);
  if (detector != nullptr) Look(detector);
  ReleaseFaceDetector(&detector);
  const std::string left = host::DescribePoolBlocks();
  if (!left.empty()) Fail("left behind:\n" + left);
  return 0;
}
