// The detector beside OpenCV used directly: a classifier built another way, from the reference
// reader's values and by OpenCV's own writer, looks at the same grey picture.
#include "facetrack/face_detector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include "facetrack/cascade_storage_text.h"
#include "facetrack/default_face_cascade_text.h"
#include "platform/detector_runtime.h"
#include "platform/host/host_kernel.h"
#include "tests/random_case.h"
#include "tests/reference_face_cascade.h"

namespace kolm {
namespace {

using Rectangles = std::vector<std::vector<int>>;

// ---- OpenCV used directly ----

std::vector<std::string> DefaultRecords(size_t stages) {
  return {DefaultFaceCascadeText, DefaultFaceCascadeText + stages};
}

cv::CascadeClassifier BuildDirectly(const ReferenceCascade& cascade, int width, int height) {
  cv::FileStorage out(".xml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  out << "cascade"
      << "{"
      << "stageType"
      << "BOOST"
      << "featureType"
      << "HAAR"
      << "height" << height << "width" << width << "featureParams"
      << "{"
      << "maxCatCount" << 0 << "}"
      << "stages"
      << "[";
  std::vector<const HaarFeature*> features;
  for (const ReferenceStage& stage : cascade) {
    out << "{"
        << "stageThreshold" << stage.threshold << "weakClassifiers"
        << "[";
    for (const ReferenceTree& tree : stage.trees) {
      out << "{"
          << "internalNodes"
          << "[";
      for (size_t i = 0; i < tree.features.size(); ++i) {
        out << tree.left[i] << tree.right[i] << static_cast<int>(features.size())
            << tree.thresholds[i];
        features.push_back(&tree.features[i]);
      }
      out << "]"
          << "leafValues"
          << "[";
      for (const float leaf : tree.leaves) out << leaf;
      out << "]"
          << "}";
    }
    out << "]"
        << "}";
  }
  out << "]"
      << "features"
      << "[";
  for (const HaarFeature* feature : features) {
    out << "{"
        << "rects"
        << "[";
    for (const CascadeRectangle& rectangle : feature->rectangles) {
      out << "[" << rectangle.x << rectangle.y << rectangle.width << rectangle.height
          << rectangle.weight << "]";
    }
    out << "]"
        << "tilted" << feature->tilted << "}";
  }
  out << "]"
      << "}";
  const cv::FileStorage in(out.releaseAndGetString(),
                           cv::FileStorage::READ | cv::FileStorage::MEMORY);
  cv::CascadeClassifier classifier;
  EXPECT_TRUE(classifier.read(in.getFirstTopLevelNode()));
  return classifier;
}

// The luma follow one another in an image whose rows are padded to four bytes.
Rectangles DetectDirectly(cv::CascadeClassifier& classifier, const std::vector<uint8_t>& luma,
                          cv::Size size, double factor) {
  const size_t stride = (static_cast<size_t>(size.width) + 3) / 4 * 4;
  std::vector<uint8_t> bytes(luma);
  bytes.resize(stride * static_cast<size_t>(size.height));
  const cv::Mat grey(size, CV_8UC1, bytes.data(), stride);
  std::vector<cv::Rect> faces;
  classifier.detectMultiScale(grey, faces, factor, 2, 1);
  Rectangles rectangles;
  for (const cv::Rect& face : faces) {
    rectangles.push_back({face.x, face.y, face.width, face.height});
  }
  return rectangles;
}

// ---- The detector ----

class Runtime : public testing::Test {
 protected:
  Runtime() { EXPECT_TRUE(BeginDetectorRuntime()); }
  ~Runtime() override {
    EndDetectorRuntime();
    EXPECT_EQ(host::DescribePoolBlocks(), "");
  }
};

using FaceDetection = Runtime;
using FaceDetectorBuilding = Runtime;

// A detector with its storage.
class Detector {
 public:
  explicit Detector(const std::vector<std::string>& records, int width = 24, int height = 24) {
    std::vector<const char*> texts;
    for (const std::string& record : records) texts.push_back(record.c_str());
    texts.push_back(nullptr);
    FaceCascade* const cascade = ReadFaceCascade(texts.data(), width, height);
    detector_ = CreateFaceDetector(*cascade);
    ReleaseFaceCascade(cascade);
    storage_ = CreateFaceStorage();
  }
  ~Detector() {
    ReleaseFaceDetector(&detector_);
    EXPECT_EQ(detector_, nullptr);
    ReleaseFaceStorage(&storage_);
    EXPECT_EQ(storage_, nullptr);
  }
  Detector(const Detector&) = delete;
  Detector& operator=(const Detector&) = delete;

  bool IsThere() const { return detector_ != nullptr; }

  const FaceSequence* Look(void* image, uint32_t factorMilli) {
    ClearFaceStorage(storage_);
    return DetectFaces(image, detector_, storage_, factorMilli);
  }

  // Chroma is no part of what is looked at, nor is what lies behind the luma.
  Rectangles Detect(const std::vector<uint8_t>& luma, cv::Size size, uint32_t factorMilli) {
    void* image =
        CreateDetectionImage(static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height));
    uint8_t* const data = DetectionImageData(image);
    std::memset(data, 0xEE, DetectionImageBytes(image));
    for (size_t i = 0; i < luma.size(); ++i) {
      data[2 * i] = luma[i];
      data[2 * i + 1] = static_cast<uint8_t>(i * 7);
    }
    const FaceSequence* const faces = Look(image, factorMilli);
    Rectangles rectangles;
    for (int32_t i = 0; i < CountFaces(faces); ++i) {
      const FaceRectangle face = GetFace(faces, i);
      rectangles.push_back({face.x, face.y, face.width, face.height});
    }
    ReleaseDetectionImage(&image);
    EXPECT_EQ(image, nullptr);
    return rectangles;
  }

 private:
  FaceDetector* detector_;
  void* storage_;
};

double Factor(uint32_t milli) { return static_cast<float>(milli) / 1000.0f; }

cv::Mat Photograph() {
  cv::Mat photograph = cv::imread(KOLM_TEST_PHOTOGRAPH, cv::IMREAD_GRAYSCALE);
  EXPECT_FALSE(photograph.empty());
  return photograph;
}

std::vector<uint8_t> Luma(const cv::Mat& picture, cv::Size size) {
  cv::Mat scaled;
  cv::resize(picture, scaled, size, 0, 0, cv::INTER_AREA);
  return {scaled.data, scaled.data + scaled.total()};
}

TEST_F(FaceDetection, FindsWhatOpenCVFindsInAPhotograph) {
  const cv::Mat photograph = Photograph();
  // One face, several of two sizes, none.
  cv::Mat row, several;
  cv::hconcat(std::vector{photograph, photograph}, row);
  cv::resize(photograph, several, row.size());
  cv::vconcat(std::vector{row, several}, several);
  const cv::Mat none =
      photograph(cv::Rect(0, photograph.rows / 2, photograph.cols / 3, photograph.rows / 2));
  Detector detector(DefaultRecords(25));
  ASSERT_TRUE(detector.IsThere());
  cv::CascadeClassifier direct =
      BuildDirectly(ReferenceReadFaceCascade(DefaultRecords(25)), 24, 24);
  size_t found = 0;
  for (const cv::Mat& picture : {photograph, several, none}) {
    for (const cv::Size size : {cv::Size(160, 120), cv::Size(320, 240), cv::Size(161, 121),
                                cv::Size(158, 90), cv::Size(163, 122), cv::Size(24, 24),
                                cv::Size(25, 400), cv::Size(400, 25), cv::Size(640, 480)}) {
      const std::vector<uint8_t> luma = Luma(picture, size);
      for (const uint32_t milli : {1050u, 1100u, 1200u, 1333u, 1500u, 3000u}) {
        if (size.width > 320 && milli != 1200) continue;  // takes its time
        SCOPED_TRACE(testing::Message() << size << " " << milli);
        const Rectangles expected = DetectDirectly(direct, luma, size, Factor(milli));
        EXPECT_EQ(detector.Detect(luma, size, milli), expected);
        found += expected.size();
      }
    }
  }
  EXPECT_GT(found, 20u);
}

TEST_F(FaceDetection, FindsTheFaceWhereItIs) {
  Detector detector(DefaultRecords(25));
  const Rectangles faces = detector.Detect(Luma(Photograph(), {160, 120}), {160, 120}, 1100);
  ASSERT_EQ(faces.size(), 1u);
  // Eyes, nose and mouth lie around (71, 37).
  EXPECT_NEAR(faces[0][0] + faces[0][2] / 2.0, 71, 4);
  EXPECT_NEAR(faces[0][1] + faces[0][3] / 2.0, 36, 4);
  EXPECT_NEAR(faces[0][2], 31, 6);
}

// The first few stages let noise pass, in great numbers.
TEST_F(FaceDetection, FindsWhatOpenCVFindsInNoise) {
  const cv::Mat photograph = Photograph();
  size_t found = 0;
  ForEachRandomCase(200, [&](Random& random) -> std::string {
    const size_t stages = random.Between(1, 12);
    const cv::Size size(static_cast<int>(random.Between(20, 120)),
                        static_cast<int>(random.Between(20, 90)));
    const uint32_t milli = random.Between(1050, 1500);
    DescribeCase(std::to_string(stages) + " stages, " + std::to_string(size.width) + " x " +
                 std::to_string(size.height) + ", factor " + std::to_string(milli));
    const auto width = static_cast<size_t>(size.width);
    std::vector<uint8_t> luma =
        random.OneIn(3) ? Luma(photograph, size)
                        : RandomPicture(random, width * static_cast<size_t>(size.height), width);
    Detector detector(DefaultRecords(stages));
    cv::CascadeClassifier direct =
        BuildDirectly(ReferenceReadFaceCascade(DefaultRecords(stages)), 24, 24);
    const Rectangles expected = DetectDirectly(direct, luma, size, Factor(milli));
    found += expected.size();
    return detector.Detect(luma, size, milli) == expected ? "" : "other rectangles";
  });
  EXPECT_GT(found, 0u);
}

// ---- Cascades of other shapes ----

std::string RandomFeature(Random& random, uint32_t width, uint32_t height) {
  const bool isTilted = random.OneIn(3);
  const uint32_t count = random.Between(1, 3);
  std::string text = std::to_string(count);
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t x, y, w, h;
    do {
      x = random.Between(0, width - 1);
      y = random.Between(0, height - 1);
      w = random.Between(0, width - x);
      h = random.Between(0, height - y);
    } while (isTilted && (h > x || y + w + h > height));
    for (const uint32_t field : {x, y, w, h}) text += " " + std::to_string(field);
    text += " 0 " + std::to_string(static_cast<int>(random.Between(0, 5)) - 2);
  }
  return text + (isTilted ? " tilted" : " upright");
}

std::string RandomReal(Random& random, uint32_t digits) {
  std::string text = random.OneIn(2) ? "-0." : "0.";
  for (uint32_t i = 0; i < digits; ++i) text += static_cast<char>('0' + random.Between(0, 9));
  return text;
}

// Trees of `nodes` nodes each at most, with links leading forward; stumps have theirs in order.
std::string RandomStage(Random& random, uint32_t nodes, uint32_t width, uint32_t height) {
  const uint32_t trees = random.Between(1, 4);
  std::string text = " " + std::to_string(trees);
  for (uint32_t tree = 0; tree < trees; ++tree) {
    const uint32_t count = random.Between(1, nodes);
    text += " " + std::to_string(count);
    for (uint32_t i = 0; i < count; ++i) {
      text += " " + RandomFeature(random, width, height) + " " + RandomReal(random, 4);
      if (count == 1) {
        text += " 0 -1";
        continue;
      }
      for (int link = 0; link < 2; ++link) {
        text += " " + (i + 1 < count && random.OneIn(2)
                           ? std::to_string(random.Between(i + 1, count - 1))
                           : "-" + std::to_string(random.Between(0, count)));
      }
    }
    for (uint32_t i = 0; i <= count; ++i) text += " " + RandomReal(random, random.Between(1, 9));
    text += " ";
  }
  return text + " -0." + std::to_string(random.Between(0, 999)) + "9";
}

TEST_F(FaceDetection, WorksWithAnySoundCascade) {
  size_t found = 0;
  ForEachRandomCase(300, [&](Random& random) -> std::string {
    const uint32_t width = random.Between(3, 30), height = random.Between(3, 30);
    const uint32_t nodes = random.OneIn(3) ? 1 : random.Between(2, 5);
    std::vector<std::string> records;
    for (uint32_t i = random.Between(1, 3); i > 0; --i) {
      records.push_back(RandomStage(random, nodes, width, height));
    }
    const cv::Size size(static_cast<int>(random.Between(width, width + 40)),
                        static_cast<int>(random.Between(height, height + 40)));
    std::string description;
    for (const std::string& record : records) description += "\"" + record + "\" ";
    DescribeCase(description);
    const std::vector<uint8_t> luma =
        RandomPicture(random, static_cast<size_t>(size.area()), static_cast<size_t>(size.width));
    Detector detector(records, static_cast<int>(width), static_cast<int>(height));
    if (!detector.IsThere()) return "no detector";
    cv::CascadeClassifier direct = BuildDirectly(ReferenceReadFaceCascade(records),
                                                 static_cast<int>(width), static_cast<int>(height));
    const Rectangles expected = DetectDirectly(direct, luma, size, Factor(1200));
    found += expected.size();
    return detector.Detect(luma, size, 1200) == expected ? "" : "other rectangles";
  });
  EXPECT_GT(found, 0u);
}

// One stage of one stump, whose threshold every window reaches on the side of the leaf 9.5.
std::string Stump(const std::string& feature, const std::string& rest) {
  return " 1 1 " + feature + " " + rest + "  1.55";
}

constexpr char kFeature[] = "2 6 4 12 9 0 -1 6 7 12 3 0 3 haar_y3";

TEST_F(FaceDetection, FollowsAStumpsLinks) {
  const std::vector<uint8_t> luma(size_t{40} * 40, 100);
  // Nothing has a variance in a flat picture: noise is needed.
  std::vector<uint8_t> noise(luma);
  for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<uint8_t>(i * i * 31 >> 3);
  const cv::Size size(40, 40);
  const std::string low = "99.5 ", high = "-99.5 ";
  for (const auto& [links, passes] :
       {std::pair("0 -1 9.5 -9.5", true), std::pair("-1 0 9.5 -9.5", false),
        std::pair("-1 0 -9.5 9.5", true), std::pair("-1 -1 -9.5 9.5", true),
        std::pair("0 0 -9.5 9.5", false)}) {
    SCOPED_TRACE(links);
    Detector detector({Stump(kFeature, low + links)});
    ASSERT_TRUE(detector.IsThere());
    EXPECT_EQ(!detector.Detect(noise, size, 1100).empty(), passes);
  }
  Detector right({Stump(kFeature, high + "0 -1 -9.5 9.5")});
  EXPECT_FALSE(right.Detect(noise, size, 1100).empty());
  EXPECT_TRUE(right.Detect(luma, size, 1100).empty());
}

TEST_F(FaceDetectorBuilding, RefusesCascadesThatLeadOutside) {
  const std::string stump = "0.5 0 -1 1.5 2.5";
  EXPECT_TRUE(Detector({Stump(kFeature, stump)}).IsThere());
  EXPECT_TRUE(Detector({Stump("1 23 23 1 1 0 1 a", stump)}).IsThere());
  EXPECT_TRUE(Detector({Stump("1 12 0 12 12 0 1 tilted", stump)}).IsThere());
  const std::string zeros(32, '0');
  const std::string two = std::string(" 1 2 ") + kFeature + " 0.5 ";
  const std::string node = std::string(" ") + kFeature + " 0.5 0 -1 1.5 2.5 3.5  1.55";
  EXPECT_TRUE(Detector({two + "1 -2" + node}).IsThere());
  const std::vector<std::string> unsound[] = {
      {},
      {""},
      {" 0  -5.55"},
      {Stump(kFeature, stump), " 0  -5.55"},
      {" 1 0 1.5  1.55"},
      {Stump("1 -1 0 2 2 0 1 a", stump)},
      {Stump("1 0 -1 2 2 0 1 a", stump)},
      {Stump("1 0 0 -2 2 0 1 a", stump)},
      {Stump("1 0 0 2 -2 0 1 a", stump)},
      {Stump("1 24 0 0 2 0 1 a", stump)},
      {Stump("1 0 24 2 0 0 1 a", stump)},
      {Stump("1 1 0 24 2 0 1 a", stump)},
      {Stump("1 0 1 2 24 0 1 a", stump)},
      {Stump("1 1 0 2147483647 2 0 1 a", stump)},
      {Stump("3 0 0 1 1 0 1 0 0 1 1 0 1 20 20 5 5 0 1 a", stump)},
      {Stump("1 11 0 12 12 0 1 tilted", stump)},
      {Stump("1 12 1 12 12 0 1 tilted", stump)},
      {Stump("1 2 0 2147483647 2 0 1 tilted", stump)},
      {Stump("1 0 0 1 1 0 1." + zeros + " a", stump)},
      {Stump(kFeature, "1." + zeros + " 0 -1 1.5 2.5")},
      {Stump(kFeature, "0.5 0 -1 1.5 0." + zeros)},
      {" 1 1 " + std::string(kFeature) + " " + stump + "  1." + zeros + "0"},
      {Stump(kFeature, "0.5 1 -1 1.5 2.5")},
      {Stump(kFeature, "0.5 0 -2 1.5 2.5")},
      {Stump(kFeature, "0.5 -2147483648 -1 1.5 2.5")},
      {two + "0 2" + node},
      {two + "0 -3" + node},
      {two.substr(0, 5) + node.substr(0, node.find(" 0.5")) + " 0.5 0 -1" +
       node.substr(0, node.find(" 0.5")) + " 0.5 1 -1 1.5 2.5 3.5  1.55"},
  };
  for (const std::vector<std::string>& records : unsound) {
    EXPECT_FALSE(Detector(records).IsThere()) << (records.empty() ? "" : records.back());
  }
  const std::string corner = Stump("1 0 0 1 1 0 1 a", stump);
  for (const auto& [width, height, isSound] :
       {std::tuple(3, 3, true), std::tuple(2, 24, false), std::tuple(24, 2, false),
        std::tuple(0, 0, false), std::tuple(-24, 24, false), std::tuple(400, 400, true),
        std::tuple(401, 24, false), std::tuple(24, INT_MAX, false)}) {
    EXPECT_EQ(Detector({corner}, width, height).IsThere(), isSound) << width << " x " << height;
  }
}

// ---- The cascade as OpenCV's text ----

// Reads the text with OpenCV and compares each value's bits.
void ExpectSameValues(const FaceCascade& cascade) {
  const cv::FileStorage storage(CascadeStorageText(cascade),
                                cv::FileStorage::READ | cv::FileStorage::MEMORY);
  const cv::FileNode root = storage.root();
  const auto bits = [](float value) { return std::bit_cast<uint32_t>(value); };
  const cv::FileNode features = root["features"];
  cv::FileNodeIterator feature = features.begin();
  ASSERT_EQ(root["stages"].size(), static_cast<size_t>(cascade.stageCount));
  cv::FileNodeIterator stageNode = root["stages"].begin();
  for (int32_t i = 0; i < cascade.stageCount; ++i, ++stageNode) {
    const CascadeStage& stage = cascade.stages[i];
    ASSERT_EQ(bits((*stageNode)["stageThreshold"]), bits(stage.threshold));
    const cv::FileNode trees = (*stageNode)["weakClassifiers"];
    ASSERT_EQ(trees.size(), static_cast<size_t>(stage.treeCount));
    cv::FileNodeIterator treeNode = trees.begin();
    for (int32_t j = 0; j < stage.treeCount; ++j, ++treeNode, ++feature) {
      const CascadeTree& tree = stage.trees[j];
      ASSERT_EQ(bits((*treeNode)["internalNodes"][3]), bits(tree.thresholds[0]));
      ASSERT_EQ(bits((*treeNode)["leafValues"][0]), bits(tree.leaves[0]));
      ASSERT_EQ(bits((*treeNode)["leafValues"][1]), bits(tree.leaves[1]));
      for (int rectangle = 0; rectangle < 2; ++rectangle) {
        const cv::FileNode written = (*feature)["rects"][rectangle];
        ASSERT_EQ(bits(written[4]), bits(tree.features[0].rectangles[rectangle].weight));
      }
    }
  }
}

using Cascade = std::unique_ptr<FaceCascade, decltype(&ReleaseFaceCascade)>;

Cascade LoadDefault() { return {LoadFaceCascade("", 24, 24), &ReleaseFaceCascade}; }

TEST(CascadeStorageText, KeepsTheDefaultsValuesToTheLastBit) { ExpectSameValues(*LoadDefault()); }

TEST(CascadeStorageText, KeepsAnyFloatToTheLastBit) {
  const Cascade cascade = LoadDefault();
  ForEachRandomCase(30, [&](Random& random) -> std::string {
    DescribeCase("floats of any bits, of any decimal, and those next to a power of two");
    const auto fill = [&](float* value) {
      do {
        switch (random.Between(0, 3)) {
          case 0:
            *value = static_cast<float>(static_cast<int32_t>(random.Bits())) /
                     std::pow(10.0f, static_cast<float>(random.Between(0, 9)));
            break;
          case 1:
            *value = std::bit_cast<float>(random.Between(0, 254) << 23 | random.Between(0, 1));
            *value = random.OneIn(2) ? *value : std::nextafter(*value, 0.0f);
            break;
          default:
            *value = std::bit_cast<float>(static_cast<uint32_t>(random.Bits()));
            break;
        }
      } while (!std::isfinite(*value));
    };
    for (int32_t i = 0; i < cascade->stageCount; ++i) {
      CascadeStage& stage = cascade->stages[i];
      fill(&stage.threshold);
      for (int32_t j = 0; j < stage.treeCount; ++j) {
        CascadeTree& tree = stage.trees[j];
        fill(&tree.thresholds[0]);
        fill(&tree.leaves[0]);
        fill(&tree.leaves[1]);
        fill(&tree.features[0].rectangles[0].weight);
        fill(&tree.features[0].rectangles[1].weight);
      }
    }
    ExpectSameValues(*cascade);
    return testing::Test::HasFatalFailure() ? "a value differs" : "";
  });
}

// ---- Images, factors, memory ----

TEST_F(FaceDetection, TakesAnyFactor) {
  Detector detector(DefaultRecords(25));
  const std::vector<uint8_t> luma = Luma(Photograph(), {80, 60});
  for (const uint32_t milli : {0u, 1u, 999u, 1000u}) {
    EXPECT_TRUE(detector.Detect(luma, {80, 60}, milli).empty());
  }
  cv::CascadeClassifier direct =
      BuildDirectly(ReferenceReadFaceCascade(DefaultRecords(25)), 24, 24);
  for (const uint32_t milli : {1001u, 2500u, 1000000u, 2147483648u, 4294967295u}) {
    EXPECT_EQ(detector.Detect(luma, {80, 60}, milli),
              DetectDirectly(direct, luma, {80, 60}, Factor(milli)))
        << milli;
  }
}

TEST_F(FaceDetection, TakesImagesOfAnySize) {
  Detector detector(DefaultRecords(2));
  cv::CascadeClassifier direct = BuildDirectly(ReferenceReadFaceCascade(DefaultRecords(2)), 24, 24);
  for (const cv::Size size :
       {cv::Size(1, 1), cv::Size(23, 24), cv::Size(24, 23), cv::Size(3, 3000), cv::Size(3000, 3),
        cv::Size(24, 3000), cv::Size(3000, 24), cv::Size(30, 30), cv::Size(61, 47)}) {
    std::vector<uint8_t> luma(static_cast<size_t>(size.area()));
    for (size_t i = 0; i < luma.size(); ++i) luma[i] = static_cast<uint8_t>(i * i >> 5);
    EXPECT_EQ(detector.Detect(luma, size, 1100), DetectDirectly(direct, luma, size, Factor(1100)))
        << size;
  }
}

// The tables of such steps would have more cells than OpenCV can number. Tables only ever grow, in
// either direction, so that images of different shapes add up.
TEST_F(FaceDetection, FindsNothingWhereTheStepsAreTooMany) {
  Detector detector(DefaultRecords(1));
  void* large = CreateDetectionImage(2000, 1500);
  void* tall = CreateDetectionImage(24, 60000);
  void* wide = CreateDetectionImage(60000, 24);
  void* storage = CreateFaceStorage();
  EXPECT_EQ(detector.Look(large, 1001), nullptr);
  std::memset(DetectionImageData(tall), 0, DetectionImageBytes(tall));
  std::memset(DetectionImageData(wide), 0, DetectionImageBytes(wide));
  EXPECT_NE(detector.Look(tall, 1100), nullptr);
  EXPECT_EQ(detector.Look(wide, 1100), nullptr);
  EXPECT_NE(detector.Look(tall, 1100), nullptr);
  for (void** image : {&large, &tall, &wide}) ReleaseDetectionImage(image);
  ReleaseFaceStorage(&storage);
}

TEST_F(FaceDetection, ServesImagesByTurns) {
  const cv::Mat photograph = Photograph();
  cv::CascadeClassifier direct =
      BuildDirectly(ReferenceReadFaceCascade(DefaultRecords(25)), 24, 24);
  Detector detector(DefaultRecords(25));
  for (int round = 0; round < 2; ++round) {
    for (const cv::Size size : {cv::Size(160, 120), cv::Size(90, 200), cv::Size(61, 46)}) {
      for (const uint32_t milli : {1100u, 1105u, 1300u}) {
        const std::vector<uint8_t> luma = Luma(photograph, size);
        EXPECT_EQ(detector.Detect(luma, size, milli),
                  DetectDirectly(direct, luma, size, Factor(milli)));
      }
    }
  }
}

TEST_F(FaceDetection, NeedsAnImageADetectorAndAStorage) {
  const Cascade cascade = LoadDefault();
  FaceDetector* detector = CreateFaceDetector(*cascade);
  void* storage = CreateFaceStorage();
  void* image = CreateDetectionImage(32, 32);
  std::memset(DetectionImageData(image), 0, DetectionImageBytes(image));
  EXPECT_NE(DetectFaces(image, detector, storage, 1100), nullptr);
  EXPECT_EQ(DetectFaces(nullptr, detector, storage, 1100), nullptr);
  EXPECT_EQ(DetectFaces(image, nullptr, storage, 1100), nullptr);
  EXPECT_EQ(DetectFaces(image, detector, nullptr, 1100), nullptr);
  EXPECT_EQ(CountFaces(nullptr), 0);
  ReleaseFaceDetector(&detector);
  ReleaseFaceStorage(&storage);
  ReleaseDetectionImage(&image);
  // Once more, on nothing.
  ReleaseFaceDetector(&detector);
  ReleaseFaceStorage(&storage);
  ReleaseDetectionImage(&image);
  ClearFaceStorage(nullptr);
  EXPECT_EQ(DetectionImageData(nullptr), nullptr);
  EXPECT_EQ(DetectionImageBytes(nullptr), 0u);
}

TEST_F(FaceDetection, MakesImagesOfThreeBytesAPixel) {
  for (const auto& [width, height] :
       {std::pair(1u, 1u), std::pair(160u, 120u), std::pair(161u, 3u), std::pair(1u, 70000u)}) {
    void* image = CreateDetectionImage(width, height);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(DetectionImageBytes(image), size_t{(width * 3 + 3) / 4 * 4} * height);
    std::memset(DetectionImageData(image), 1, DetectionImageBytes(image));
    ReleaseDetectionImage(&image);
  }
  for (const auto& [width, height] :
       {std::pair(0u, 120u), std::pair(160u, 0u), std::pair(UINT32_MAX, 1u),
        std::pair(1u, UINT32_MAX), std::pair(UINT32_MAX, UINT32_MAX), std::pair(30000u, 30000u),
        std::pair(715827882u, 1u), std::pair(0x80000000u, 0x80000000u)}) {
    EXPECT_EQ(CreateDetectionImage(width, height), nullptr) << width << " x " << height;
  }
}

TEST(DetectorRuntime, WorksOnOneThread) {
  const int before = cv::getNumThreads();
  cv::setNumThreads(2);
  ASSERT_TRUE(BeginDetectorRuntime());
  EXPECT_EQ(cv::getNumThreads(), 1);
  EndDetectorRuntime();
  EXPECT_EQ(cv::getNumThreads(), 2);
  cv::setNumThreads(before);
}

}  // namespace
}  // namespace kolm
