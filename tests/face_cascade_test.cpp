// The built-in cascade against its known figures, and the reader on records of every kind.
#include "facetrack/face_cascade.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <sstream>

#include "facetrack/default_face_cascade_text.h"
#include "platform/host/host_kernel.h"
#include "tests/guarded_buffer.h"
#include "tests/random_case.h"
#include "tests/reference_face_cascade.h"

namespace kolm {
namespace {

using Cascade = std::unique_ptr<FaceCascade, decltype(&ReleaseFaceCascade)>;

// Each record lies between guard pages.
Cascade Read(const std::vector<std::string>& records,
             GuardedBuffer::Flush flush = GuardedBuffer::Flush::End) {
  std::vector<std::unique_ptr<GuardedBuffer>> buffers;
  std::vector<const char*> texts;
  for (const std::string& record : records) {
    buffers.push_back(std::make_unique<GuardedBuffer>(record.size() + 1, flush));
    std::memcpy(buffers.back()->data(), record.c_str(), record.size() + 1);
    buffers.back()->MakeReadOnly();
    texts.push_back(reinterpret_cast<const char*>(buffers.back()->data()));
  }
  texts.push_back(nullptr);
  return Cascade(ReadFaceCascade(texts.data(), 24, 24), &ReleaseFaceCascade);
}

Cascade LoadDefault() {
  return Cascade(LoadFaceCascade("<default_face_cascade>", 24, 24), &ReleaseFaceCascade);
}

std::vector<std::string> DefaultRecords() {
  std::vector<std::string> records;
  for (const char* const* text = DefaultFaceCascadeText; *text != nullptr; ++text) {
    records.emplace_back(*text);
  }
  return records;
}

void ExpectRectangle(const CascadeRectangle& actual, const CascadeRectangle& expected) {
  EXPECT_EQ(actual.x, expected.x);
  EXPECT_EQ(actual.y, expected.y);
  EXPECT_EQ(actual.width, expected.width);
  EXPECT_EQ(actual.height, expected.height);
  EXPECT_EQ(actual.weight, expected.weight);
}

struct StageFigures {
  int32_t trees;
  const char* written;
  float inEffect;
};

// The last digit of a record is not read.
constexpr StageFigures kStages[] = {
    {9, "-5.042550", -5.042550f},  {16, "-4.984240", -4.984240f},  {27, "-4.655190", -4.655190f},
    {32, "-4.453159", -4.45315f},  {52, "-4.386459", -4.38645f},   {53, "-4.129930", -4.129930f},
    {62, "-4.021809", -4.02180f},  {72, "-3.883209", -3.88320f},   {83, "-3.842491", -3.84249f},
    {91, "-3.647861", -3.64786f},  {99, "-3.870049", -3.87004f},   {115, "-3.716091", -3.71609f},
    {127, "-3.564529", -3.56452f}, {135, "-3.702599", -3.70259f},  {136, "-3.426590", -3.426590f},
    {137, "-3.512527", -3.51252f}, {159, "-3.593964", -3.59396f},  {155, "-3.393356", -3.39335f},
    {169, "-3.239693", -3.23969f}, {196, "-3.210350", -3.210350f}, {197, "-3.277298", -3.27729f},
    {181, "-3.319641", -3.31964f}, {199, "-3.257332", -3.25733f},  {211, "-3.370300", -3.370300f},
    {200, "-2.992828", -2.99282f},
};

TEST(DefaultFaceCascade, HasItsStagesTreesAndThresholds) {
  const std::vector<std::string> records = DefaultRecords();
  const Cascade cascade = LoadDefault();
  ASSERT_NE(cascade, nullptr);
  ASSERT_EQ(records.size(), std::size(kStages));
  ASSERT_EQ(cascade->stageCount, 25);
  EXPECT_EQ(cascade->width, 24);
  EXPECT_EQ(cascade->height, 24);
  int32_t trees = 0;
  for (size_t i = 0; i < records.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(records[i].ends_with(std::string("  ") + kStages[i].written));
    EXPECT_EQ(cascade->stages[i].treeCount, kStages[i].trees);
    EXPECT_EQ(cascade->stages[i].threshold, kStages[i].inEffect);
    trees += cascade->stages[i].treeCount;
  }
  EXPECT_EQ(trees, 2913);
}

TEST(DefaultFaceCascade, BeginsWithItsFirstFeature) {
  const Cascade cascade = LoadDefault();
  ASSERT_NE(cascade, nullptr);
  EXPECT_TRUE(DefaultRecords()[0].starts_with(
      " 9 1 2 6 4 12 9 0 -1 6 7 12 3 0 3 haar_y3 -0.031512 0 -1 2.087538 -2.217210  1 2 "));
  const CascadeTree& tree = cascade->stages[0].trees[0];
  ASSERT_EQ(tree.nodeCount, 1);
  EXPECT_EQ(tree.features[0].tilted, 0);
  ExpectRectangle(tree.features[0].rectangles[0], {6, 4, 12, 9, -1.0f});
  ExpectRectangle(tree.features[0].rectangles[1], {6, 7, 12, 3, 3.0f});
  ExpectRectangle(tree.features[0].rectangles[2], {0, 0, 0, 0, 0.0f});
  EXPECT_EQ(tree.thresholds[0], -0.031512f);
  EXPECT_EQ(tree.left[0], 0);
  EXPECT_EQ(tree.right[0], -1);
  EXPECT_EQ(tree.leaves[0], 2.087538f);
  EXPECT_EQ(tree.leaves[1], -2.217210f);
}

TEST(DefaultFaceCascade, HasItsFeatureNames) {
  std::map<std::string, int> names;
  int points = 0;
  for (const std::string& record : DefaultRecords()) {
    EXPECT_EQ(record.find_first_not_of("0123456789-. haarxy_"), std::string::npos);
    std::istringstream words(record);
    for (std::string word; words >> word;) {
      if (word[0] == 'h') ++names[word];
      const size_t point = word.find('.');
      if (point == std::string::npos) continue;
      ++points;
      EXPECT_EQ(word.size() - point, 7u) << word;
    }
  }
  const std::map<std::string, int> expected = {
      {"haar_x2", 431}, {"haar_y2", 467}, {"haar_x3", 673}, {"haar_y3", 785}, {"haar_x2_y2", 557}};
  EXPECT_EQ(names, expected);
  EXPECT_EQ(points, 8739 + 25);
}

TEST(DefaultFaceCascade, ConsistsOfUprightStumpsInsideTheWindow) {
  const Cascade cascade = LoadDefault();
  ASSERT_NE(cascade, nullptr);
  int features = 0;
  for (int32_t i = 0; i < cascade->stageCount; ++i) {
    for (int32_t j = 0; j < cascade->stages[i].treeCount; ++j) {
      const CascadeTree& tree = cascade->stages[i].trees[j];
      ASSERT_EQ(tree.nodeCount, 1);
      EXPECT_EQ(tree.left[0], 0);
      EXPECT_EQ(tree.right[0], -1);
      EXPECT_EQ(tree.features[0].tilted, 0);
      EXPECT_EQ(tree.features[0].rectangles[0].weight, -1.0f);
      for (const CascadeRectangle& rectangle : tree.features[0].rectangles) {
        EXPECT_GE(rectangle.x, 0);
        EXPECT_GE(rectangle.y, 0);
        EXPECT_LE(rectangle.x + rectangle.width, 24);
        EXPECT_LE(rectangle.y + rectangle.height, 24);
      }
      ++features;
    }
  }
  EXPECT_EQ(features, 2913);
}

TEST(DefaultFaceCascade, IsReadAsTheReferenceReadsIt) {
  const Cascade cascade = LoadDefault();
  ASSERT_NE(cascade, nullptr);
  EXPECT_EQ(CompareCascades(ReferenceReadFaceCascade(DefaultRecords()), *cascade), "");
}

TEST(DefaultFaceCascade, IsTheSameByAnyName) {
  for (const char* name : {"<default_face_cascade>", "", "nothing.xml"}) {
    const Cascade cascade(LoadFaceCascade(name, 24, 24), &ReleaseFaceCascade);
    ASSERT_NE(cascade, nullptr);
    EXPECT_EQ(CompareCascades(ReferenceReadFaceCascade(DefaultRecords()), *cascade), "");
  }
}

// ---- Records made by hand ----

constexpr char kTwoRectangles[] = "2 6 4 12 9 0 -1 6 7 12 3 0 3";

// A stage of one stump, read as a threshold of 0.5, links 0 and -1, leaves 2.5 and -3.5 and a stage
// threshold of -4.5.
std::string Stump(const std::string& left, const std::string& threshold = "0.5",
                  const std::string& feature = std::string(kTwoRectangles) + " haar_y3") {
  return " 1 1 " + feature + " " + threshold + " " + left + " -1 2.5 -3.5  -4.55";
}

// Everything behind the left link is as it should be.
void ExpectStumpsEnd(const FaceCascade& cascade) {
  const CascadeTree& tree = cascade.stages[0].trees[0];
  EXPECT_EQ(tree.right[0], -1);
  EXPECT_EQ(tree.leaves[0], 2.5f);
  EXPECT_EQ(tree.leaves[1], -3.5f);
  EXPECT_EQ(cascade.stages[0].threshold, -4.5f);
}

void ExpectNothingBehindLeft(const FaceCascade& cascade) {
  const CascadeTree& tree = cascade.stages[0].trees[0];
  EXPECT_EQ(tree.right[0], 0);
  EXPECT_EQ(tree.leaves[0], 0.0f);
  EXPECT_EQ(tree.leaves[1], 0.0f);
  EXPECT_EQ(cascade.stages[0].threshold, 0.0f);
}

TEST(FaceCascadeReader, ReadsIntegers) {
  const std::pair<const char*, int32_t> tokens[] = {
      {"5", 5},           {"-5", -5},        {"5-", -5},
      {"1-2", -12},       {"--7", -7},       {"- 7", -7},
      {"    7", 7},       {"007", 7},        {"2147483648", INT32_MIN},
      {"4294967295", -1}, {"4294967297", 1}, {"99999999999", 1215752191},
      {"-4294967295", 1},
  };
  for (const auto& [token, value] : tokens) {
    SCOPED_TRACE(token);
    const Cascade cascade = Read({Stump(token)});
    ASSERT_NE(cascade, nullptr);
    EXPECT_EQ(cascade->stages[0].trees[0].left[0], value);
    ExpectStumpsEnd(*cascade);
  }
}

TEST(FaceCascadeReader, EndsTheRecordAtWhatIsNoInteger) {
  for (const char* token : {"+5", "1e3", "5.5", "0x1", "a", "5\t", "\xff"}) {
    SCOPED_TRACE(token);
    const Cascade cascade = Read({Stump(token)});
    ASSERT_NE(cascade, nullptr);
    EXPECT_EQ(cascade->stages[0].trees[0].thresholds[0], 0.5f);
    EXPECT_EQ(cascade->stages[0].trees[0].left[0], 0);
    ExpectNothingBehindLeft(*cascade);
  }
}

TEST(FaceCascadeReader, ReadsReals) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const std::string zeros(31, '0');
  const std::pair<std::string, float> tokens[] = {
      {"0.5", 0.5f},
      {"-0.031512", -31512.0f / 1000000.0f},
      {"-0.031512-", 0.0f},
      {"7", 7.0f},
      {"7-", -7.0f},
      {"-7.", -73.0f / 10.0f},  // goes on with the next token's digits, behind the space
      {".5", 0.5f},
      {" .25", 0.25f},
      {"2-.5", -2.5f},
      {"- 2.5", -2.5f},
      {"-0.0", -0.0f},
      {"3000000000", -1294967296.0f},
      {"42949672975.0", 150.0f / 10.0f},
      {"0.0000000001", 1.0f / 1410065408.0f},
      {"0.0000000000001", 1.0f / 1316134912.0f},
      {"0." + zeros + "1", kInfinity},  // ten to the power of 32 is 0 in 32 bits
      {"-0." + zeros + "1", kInfinity},
  };
  for (const auto& [token, value] : tokens) {
    SCOPED_TRACE(token);
    const bool runsOn = token == "-7.";
    const bool fails = token == "-0.031512-";
    const Cascade cascade = Read({Stump(runsOn ? "3 0" : "0", token)});
    ASSERT_NE(cascade, nullptr);
    const float threshold = cascade->stages[0].trees[0].thresholds[0];
    EXPECT_EQ(threshold, value);
    EXPECT_EQ(std::signbit(threshold), std::signbit(value));
    if (fails) {
      ExpectNothingBehindLeft(*cascade);
    } else {
      ExpectStumpsEnd(*cascade);
    }
  }
  const Cascade cascade = Read({Stump("0", "0." + zeros + "0")});
  ASSERT_NE(cascade, nullptr);
  EXPECT_TRUE(std::isnan(cascade->stages[0].trees[0].thresholds[0]));
}

TEST(FaceCascadeReader, EndsTheRecordAtWhatIsNoReal) {
  for (const char* token : {"+5", "1e3", "1.2.3", ".-5", "0.5f", "..5", "1,5"}) {
    SCOPED_TRACE(token);
    const Cascade cascade = Read({Stump("5", token)});
    ASSERT_NE(cascade, nullptr);
    EXPECT_EQ(cascade->stages[0].trees[0].features[0].rectangles[1].weight, 3.0f);
    EXPECT_EQ(cascade->stages[0].trees[0].thresholds[0], 0.0f);
    EXPECT_EQ(cascade->stages[0].trees[0].left[0], 0);
    ExpectNothingBehindLeft(*cascade);
  }
}

TEST(FaceCascadeReader, NeverLooksAtTheLastCharacter) {
  // The left link is cut off in the middle: "12" is 1, then a single character is 0.
  const std::string record = Stump("12");
  const size_t left = record.find(" 12 ", record.find("0.5"));
  const Cascade cascade = Read({record.substr(0, left + 3)});
  ASSERT_NE(cascade, nullptr);
  EXPECT_EQ(cascade->stages[0].trees[0].left[0], 1);
  ExpectNothingBehindLeft(*cascade);

  const Cascade lettered = Read({Stump("0").substr(0, Stump("0").size() - 1) + "x"});
  ASSERT_NE(lettered, nullptr);
  ExpectStumpsEnd(*lettered);
}

TEST(FaceCascadeReader, ReadsShortRecordsAsNothing) {
  for (const char* record : {"", " ", "5", "  ", "    ", "-", "- ", "x", "0 ", " 1"}) {
    SCOPED_TRACE(record);
    const Cascade cascade = Read({record, Stump("0")});
    ASSERT_NE(cascade, nullptr);
    ASSERT_EQ(cascade->stageCount, 2);
    EXPECT_EQ(cascade->stages[0].treeCount, 0);
    EXPECT_EQ(cascade->stages[0].threshold, 0.0f);
    EXPECT_EQ(cascade->stages[1].treeCount, 1);
  }
}

TEST(FaceCascadeReader, ReadsNoRecords) {
  const Cascade cascade = Read({});
  ASSERT_NE(cascade, nullptr);
  EXPECT_EQ(cascade->stageCount, 0);
}

TEST(FaceCascadeReader, KeepsThreeRectangles) {
  const std::string rectangle = " 1 2 3 4 5 6";
  std::string feature;
  for (int count = 0; count < 6; ++count) {
    SCOPED_TRACE(count);
    const Cascade cascade = Read({Stump("0", "0.5", std::to_string(count) + feature + " haar_x2")});
    ASSERT_NE(cascade, nullptr);
    for (int i = 0; i < 3; ++i) {
      ExpectRectangle(cascade->stages[0].trees[0].features[0].rectangles[i],
                      i < count ? CascadeRectangle{1, 2, 3, 4, 6.0f} : CascadeRectangle{});
    }
    EXPECT_EQ(cascade->stages[0].trees[0].thresholds[0], 0.5f);
    ExpectStumpsEnd(*cascade);
    feature += rectangle;
  }
}

TEST(FaceCascadeReader, TakesSixLettersOfAName) {
  const std::pair<std::string, int32_t> names[] = {
      {"tilted", 1},
      {"tilted_haar_x2", 1},
      {"tilte", 0},
      {"Tilted", 0},
      {"haar_tilted", 0},
      {"    tilted", 1},
      {"+5", 0},
      {"1e3", 0},
      {"tilted" + std::string(300, 'x'), 1},
      {std::string(199, 'a'), 0},
      {std::string(200, 'a'), 0},
      {std::string(100000, 'a'), 0},
  };
  for (const auto& [name, tilted] : names) {
    SCOPED_TRACE(name.substr(0, 20));
    const Cascade cascade = Read({Stump("0", "0.5", kTwoRectangles + (" " + name))});
    ASSERT_NE(cascade, nullptr);
    EXPECT_EQ(cascade->stages[0].trees[0].features[0].tilted, tilted);
    EXPECT_EQ(cascade->stages[0].trees[0].thresholds[0], 0.5f);
    ExpectStumpsEnd(*cascade);
  }
  // The record ends with the name, and within it.
  for (const char* name : {"tilted", "tilt"}) {
    const Cascade cascade = Read({std::string(" 1 1 ") + kTwoRectangles + " " + name});
    ASSERT_NE(cascade, nullptr);
    EXPECT_EQ(cascade->stages[0].trees[0].features[0].tilted, name == std::string("tilted"));
    EXPECT_EQ(cascade->stages[0].trees[0].thresholds[0], 0.0f);
  }
}

TEST(FaceCascadeReader, StopsWithinARectangle) {
  const Cascade cascade = Read({Stump("5", "0.5", "2 6 4 12 9 0 -1 6 7 +12 3 0 3 tilted")});
  ASSERT_NE(cascade, nullptr);
  const CascadeTree& tree = cascade->stages[0].trees[0];
  ExpectRectangle(tree.features[0].rectangles[0], {6, 4, 12, 9, -1.0f});
  ExpectRectangle(tree.features[0].rectangles[1], {6, 7, 0, 0, 0.0f});
  EXPECT_EQ(tree.features[0].tilted, 0);
  EXPECT_EQ(tree.thresholds[0], 0.0f);
  EXPECT_EQ(tree.left[0], 0);
  ExpectNothingBehindLeft(*cascade);
}

TEST(FaceCascadeReader, ReadsTreesOfSeveralNodes) {
  const std::string node = std::string(kTwoRectangles) + " tilted_x ";
  const Cascade cascade =
      Read({" 2 2 " + node + "0.25 1 0 " + node + "0.75 -1 -2 1.5 2.5 3.5  0 9.5  6.55"});
  ASSERT_NE(cascade, nullptr);
  ASSERT_EQ(cascade->stages[0].treeCount, 2);
  const CascadeTree& tree = cascade->stages[0].trees[0];
  ASSERT_EQ(tree.nodeCount, 2);
  ExpectRectangle(tree.features[1].rectangles[1], {6, 7, 12, 3, 3.0f});
  EXPECT_EQ(std::vector<float>(tree.thresholds, tree.thresholds + 2),
            (std::vector<float>{0.25f, 0.75f}));
  EXPECT_EQ(std::vector<int32_t>(tree.left, tree.left + 2), (std::vector<int32_t>{1, -1}));
  EXPECT_EQ(std::vector<int32_t>(tree.right, tree.right + 2), (std::vector<int32_t>{0, -2}));
  EXPECT_EQ(std::vector<float>(tree.leaves, tree.leaves + 3),
            (std::vector<float>{1.5f, 2.5f, 3.5f}));
  EXPECT_EQ(cascade->stages[0].trees[1].nodeCount, 0);
  EXPECT_EQ(cascade->stages[0].trees[1].leaves[0], 9.5f);
  EXPECT_EQ(cascade->stages[0].threshold, 6.5f);
}

TEST(FaceCascadeReader, ReadsTreesThatARecordHasNoRoomFor) {
  // The one tree is read from the last character, which is no number.
  const Cascade short12 = Read({"12"});
  ASSERT_NE(short12, nullptr);
  ASSERT_EQ(short12->stages[0].treeCount, 1);
  EXPECT_EQ(short12->stages[0].trees[0].nodeCount, 0);
  EXPECT_EQ(short12->stages[0].trees[0].leaves[0], 0.0f);
  EXPECT_EQ(short12->stages[0].threshold, 0.0f);

  const Cascade fifty = Read({" 50" + Stump("0").substr(2)});
  ASSERT_NE(fifty, nullptr);
  ASSERT_EQ(fifty->stages[0].treeCount, 50);
  const CascadeTree& tree = fifty->stages[0].trees[0];
  ASSERT_EQ(tree.nodeCount, 1);
  ExpectRectangle(tree.features[0].rectangles[0], {6, 4, 12, 9, -1.0f});
  ExpectRectangle(tree.features[0].rectangles[1], {6, 7, 12, 3, 3.0f});
  EXPECT_EQ(tree.thresholds[0], 0.5f);
  EXPECT_EQ(tree.left[0], 0);
  EXPECT_EQ(tree.right[0], -1);
  EXPECT_EQ(tree.leaves[0], 2.5f);
  EXPECT_EQ(tree.leaves[1], -3.5f);
  for (int i = 1; i < 50; ++i) {
    EXPECT_EQ(fifty->stages[0].trees[i].nodeCount, 0);
    EXPECT_EQ(fifty->stages[0].trees[i].leaves[0], 0.0f);
  }
  EXPECT_EQ(fifty->stages[0].threshold, 0.0f);
}

TEST(FaceCascadeReader, ReadsAFeatureUpToTheRecordsEnd) {
  const Cascade cascade = Read({" 1 1 2 6 4 12 9 0 -1 6 7 12 3", " 1 1 0 tilted"});
  ASSERT_NE(cascade, nullptr);
  for (int i = 0; i < 2; ++i) {
    const CascadeStage& stage = cascade->stages[i];
    ASSERT_EQ(stage.treeCount, 1);
    ASSERT_EQ(stage.trees[0].nodeCount, 1);
    EXPECT_EQ(stage.trees[0].features[0].tilted, i);
    EXPECT_EQ(stage.trees[0].thresholds[0], 0.0f);
    EXPECT_EQ(stage.trees[0].leaves[1], 0.0f);
    EXPECT_EQ(stage.threshold, 0.0f);
  }
  const HaarFeature& feature = cascade->stages[0].trees[0].features[0];
  ExpectRectangle(feature.rectangles[0], {6, 4, 12, 9, -1.0f});
  ExpectRectangle(feature.rectangles[1], {6, 7, 12, 0, 0.0f});
  ExpectRectangle(feature.rectangles[2], {});
  ExpectRectangle(cascade->stages[1].trees[0].features[0].rectangles[0], {});
}

TEST(FaceCascadeReader, ReadsNothingForANegativeCount) {
  for (const int32_t count : {-1, -2, -1000, INT32_MIN}) {
    SCOPED_TRACE(count);
    const std::string number = std::to_string(count);
    const Cascade cascade = Read({" " + number + "  -4.55", " 1 " + number + "  -4.55",
                                  Stump("5", "0.5", number + " tilted")});
    ASSERT_NE(cascade, nullptr);
    EXPECT_EQ(cascade->stages[0].treeCount, count);
    EXPECT_EQ(cascade->stages[0].threshold, -4.5f);

    ASSERT_EQ(cascade->stages[1].treeCount, 1);
    EXPECT_EQ(cascade->stages[1].trees[0].nodeCount, count);
    EXPECT_EQ(cascade->stages[1].threshold, -4.5f);

    ASSERT_EQ(cascade->stages[2].treeCount, 1);
    const CascadeTree& tree = cascade->stages[2].trees[0];
    ExpectRectangle(tree.features[0].rectangles[0], {});
    EXPECT_EQ(tree.features[0].tilted, 1);
    EXPECT_EQ(tree.thresholds[0], 0.5f);
    EXPECT_EQ(tree.left[0], 5);
    EXPECT_EQ(tree.leaves[1], -3.5f);
    EXPECT_EQ(cascade->stages[2].threshold, -4.5f);
  }
}

// 17 characters stand behind the count.
TEST(FaceCascadeReader, CutsCountsToTheCharactersLeft) {
  for (const auto& [written, count] : {std::pair("16", 16), std::pair("17", 17),
                                       std::pair("18", 17), std::pair("2147483647", 17)}) {
    SCOPED_TRACE(written);
    const std::string number = written;
    const Cascade cascade =
        Read({" " + number + " 1 1 2 3 4 5 6 7 8", " 1 " + number + " 1 1 2 3 4 5 6 7 8",
              " 1 1 " + number + " 1 1 2 3 4 5 6 7 8"});
    ASSERT_NE(cascade, nullptr);
    const CascadeStage& trees = cascade->stages[0];
    ASSERT_EQ(trees.treeCount, count);
    ASSERT_EQ(trees.trees[0].nodeCount, 1);
    ExpectRectangle(trees.trees[0].features[0].rectangles[0], {2, 3, 4, 5, 7.0f});
    EXPECT_EQ(trees.trees[count - 1].nodeCount, 0);
    EXPECT_EQ(trees.threshold, 0.0f);

    ASSERT_EQ(cascade->stages[1].treeCount, 1);
    const CascadeTree& nodes = cascade->stages[1].trees[0];
    ASSERT_EQ(nodes.nodeCount, count);
    ExpectRectangle(nodes.features[0].rectangles[0], {1, 2, 3, 4, 6.0f});
    EXPECT_EQ(nodes.thresholds[0], 0.0f);
    ExpectRectangle(nodes.features[count - 1].rectangles[0], {});
    EXPECT_EQ(nodes.leaves[count], 0.0f);

    const HaarFeature& feature = cascade->stages[2].trees[0].features[0];
    ExpectRectangle(feature.rectangles[0], {1, 1, 2, 3, 5.0f});
    ExpectRectangle(feature.rectangles[1], {6, 7, 0, 0, 0.0f});
    ExpectRectangle(feature.rectangles[2], {});
  }
}

TEST(FaceCascadeReader, AlignsItsBlocks) {
  const size_t before = host::PoolBlocks().size();
  const Cascade cascade = Read({Stump("0"), Stump("0")});
  ASSERT_NE(cascade, nullptr);
  const auto isAligned = [](const void* block) {
    return reinterpret_cast<uintptr_t>(block) % 32 == 0;
  };
  EXPECT_TRUE(isAligned(cascade.get()));
  EXPECT_EQ(static_cast<void*>(cascade->stages), static_cast<void*>(cascade.get() + 1));
  for (int i = 0; i < 2; ++i) {
    const CascadeStage& stage = cascade->stages[i];
    EXPECT_TRUE(isAligned(stage.trees));
    const CascadeTree& tree = stage.trees[0];
    EXPECT_TRUE(isAligned(tree.features));
    EXPECT_EQ(static_cast<void*>(tree.thresholds), static_cast<void*>(tree.features + 1));
    EXPECT_EQ(static_cast<void*>(tree.left), static_cast<void*>(tree.thresholds + 1));
    EXPECT_EQ(static_cast<void*>(tree.right), static_cast<void*>(tree.left + 1));
    EXPECT_EQ(static_cast<void*>(tree.leaves), static_cast<void*>(tree.right + 1));
  }
  // The header, and for each stage its trees and the one tree's arrays.
  const std::vector<host::PoolBlock> blocks = host::PoolBlocks();
  EXPECT_EQ(blocks.size(), before + 5);
  const void* own;
  std::memcpy(&own, reinterpret_cast<const char*>(cascade.get()) - sizeof own, sizeof own);
  EXPECT_TRUE(std::any_of(blocks.begin(), blocks.end(),
                          [own](const host::PoolBlock& block) { return block.address == own; }));
}

TEST(FaceCascadeReader, KeepsNothingWithoutMemory) {
  const std::vector<std::string> records = {Stump("0"), Stump("0")};
  int made = 0, refused = 0;
  const size_t places = host::FailEachAllocationOnce([&] {
    const Cascade cascade = Read(records);
    ++(cascade == nullptr ? refused : made);
    if (cascade == nullptr) {
      EXPECT_EQ(host::DescribePoolBlocks(), "");
    }
  });
  EXPECT_EQ(places, 3u);  // header, trees, a tree's arrays
  EXPECT_EQ(refused, 3);
  EXPECT_EQ(made, 1);
  // A later stage's blocks fail when earlier ones are there.
  for (int which = 0; which < 5; ++which) {
    host::SetPoolFailure([n = which](uint64_t) mutable { return n-- == 0; });
    EXPECT_EQ(Read(records), nullptr);
    EXPECT_EQ(host::DescribePoolBlocks(), "");
  }
  host::SetPoolFailure(nullptr);
  EXPECT_NE(Read(records), nullptr);
  EXPECT_EQ(host::DescribePoolBlocks(), "");
}

TEST(FaceCascadeReader, ReleasesNull) {
  ReleaseFaceCascade(nullptr);
  EXPECT_EQ(host::DescribePoolBlocks(), "");
}

// ---- Random records ----

std::string RandomInteger(Random& random) {
  if (random.OneIn(30)) return std::to_string(random.Bits());
  return std::to_string(static_cast<int32_t>(random.Between(0, 40)) - 10);
}

std::string RandomReal(Random& random) {
  std::string text = std::to_string(static_cast<int32_t>(random.Between(0, 60)) - 30);
  if (random.OneIn(10)) return text;
  text += '.';
  const uint32_t digits = random.OneIn(20) ? random.Between(1, 40) : 6;
  for (uint32_t i = 0; i < digits; ++i) text += static_cast<char>('0' + random.Between(0, 9));
  return text;
}

// Mostly what follows, and now and then anything.
std::string RandomCount(Random& random, uint32_t count) {
  if (!random.OneIn(40)) return std::to_string(count);
  return std::to_string(random.Pick<int64_t>({-1, -2, -70000, 50, 1000, 2147483647}));
}

std::string RandomRecord(Random& random) {
  const uint32_t trees = random.Between(0, 4);
  std::string text = " " + RandomCount(random, trees);
  for (uint32_t i = 0; i < trees; ++i) {
    const uint32_t nodes = random.Between(0, 3);
    text += " " + RandomCount(random, nodes);
    for (uint32_t j = 0; j < nodes; ++j) {
      const uint32_t rectangles = random.OneIn(8) ? random.Between(0, 9) : random.Between(2, 3);
      text += " " + RandomCount(random, rectangles);
      for (uint32_t k = 0; k < rectangles; ++k) {
        for (int field = 0; field < 5; ++field) text += " " + RandomInteger(random);
        text += " " + RandomReal(random);
      }
      text += random.OneIn(3) ? " tilted_x" : " haar_y3";
      text += " " + RandomReal(random);
      text += " " + RandomInteger(random) + " " + RandomInteger(random);
    }
    for (uint32_t j = 0; j <= nodes; ++j) text += " " + RandomReal(random);
    text += " ";
  }
  return text + " " + RandomReal(random);
}

// Changes, takes out or puts in a few characters, or cuts the end off.
void Damage(Random& random, std::string& text) {
  static const std::string characters = "0123456789    --..+eEtx\t\xff";
  for (uint32_t i = random.Between(1, 4); i > 0 && !text.empty(); --i) {
    const size_t at = random.Bits() % text.size();
    const char character = characters[random.Bits() % characters.size()];
    switch (random.Between(0, 7)) {
      case 0:
        text.resize(at);
        break;
      case 1:
      case 2:
        text.erase(at, 1);
        break;
      case 3:
      case 4:
        text.insert(at, 1, character);
        break;
      default:
        text[at] = character;
        break;
    }
  }
}

std::string Garbage(Random& random) {
  static const std::string characters = "0123456789            --..+etild\t\xff";
  std::string text;
  for (uint32_t i = random.Between(0, 200); i > 0; --i) {
    text += characters[random.Bits() % characters.size()];
  }
  return text;
}

TEST(FaceCascadeReader, ReadsRandomRecordsAsTheReferenceDoes) {
  int whole = 0;
  ForEachRandomCase(4000, [&](Random& random) -> std::string {
    const uint32_t kind = random.Between(0, 9);
    std::vector<std::string> records;
    for (uint32_t i = random.Between(0, 3); i > 0; --i) {
      records.push_back(kind == 0 ? Garbage(random) : RandomRecord(random));
      if (kind > 4) Damage(random, records.back());
    }
    std::string description;
    for (const std::string& record : records) description += "\"" + record + "\" ";
    DescribeCase(description);
    using Flush = GuardedBuffer::Flush;
    using host::PoolGuard;
    for (const auto& [flush, guard] :
         {std::pair(Flush::End, PoolGuard::Behind), std::pair(Flush::Start, PoolGuard::Before)}) {
      host::SetPoolGuard(guard);
      const Cascade cascade = Read(records, flush);
      host::SetPoolGuard(PoolGuard::None);
      if (cascade == nullptr) return "no cascade";
      std::string wrong = CompareCascades(ReferenceReadFaceCascade(records), *cascade);
      if (!wrong.empty()) return wrong;
      if (cascade->stageCount > 0 && cascade->stages[0].threshold != 0.0f) ++whole;
    }
    return host::DescribePoolBlocks();
  });
  EXPECT_GT(whole, 0);
}

// What is read of a record, and taken from the pool, stays in proportion to its length.
TEST(FaceCascadeReader, TakesLongRecordsInItsStride) {
  for (const std::string unit : {" 9", " 99999", " ", "9", "-", " 1 1 1", "a", " 2 2 2.", " 0 0",
                                 " 1 5000", " -1", " 2147483647"}) {
    for (const char* count : {" 500 ", " 2147483647 ", " 1 1 2147483647"}) {
      SCOPED_TRACE(count + unit);
      std::string record = count;
      while (record.size() < 1000) record += unit;
      const Cascade cascade = Read({record});
      ASSERT_NE(cascade, nullptr);
      EXPECT_LE(static_cast<size_t>(cascade->stages[0].treeCount), record.size());
      uint64_t bytes = 0;
      for (const host::PoolBlock& block : host::PoolBlocks()) bytes += block.bytes;
      EXPECT_LE(bytes, record.size() * 200);
    }
  }
}

}  // namespace
}  // namespace kolm
