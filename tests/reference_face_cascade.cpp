// One character string after the other is cut off the front of the record.
#include "tests/reference_face_cascade.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

namespace kolm {
namespace {

constexpr std::string_view kDigits = "0123456789";

// What a number consists of: digits before and behind the point.
struct Token {
  std::string whole, fraction;
  bool isNegative = false;
};

class Record {
 public:
  explicit Record(const std::string& text) : rest_(text) {}

  int32_t Integer() {
    const Token token = Take(false);
    const uint32_t value = Accumulate(token.whole);
    return static_cast<int32_t>(token.isNegative ? -value : value);
  }

  float Real() {
    const Token token = Take(true);
    uint32_t divisor = token.isNegative ? UINT32_MAX : 1;
    for (size_t i = 0; i < token.fraction.size(); ++i) divisor *= 10;
    const auto dividend = static_cast<int32_t>(Accumulate(token.whole + token.fraction));
    return static_cast<float>(dividend) / static_cast<float>(static_cast<int32_t>(divisor));
  }

  // At least `least` characters are needed for each.
  int32_t Count(size_t least) {
    const int32_t count = Integer();
    if (count >= 0 && static_cast<uint64_t>(count) * least <= rest_.size()) return count;
    rest_.clear();
    return 0;
  }

  std::string Word() {
    rest_.erase(0, std::min(rest_.find_first_not_of(' '), rest_.size()));
    std::string word = rest_.substr(0, rest_.find(' '));
    rest_.erase(0, word.size() + 1);
    return word;
  }

 private:
  static uint32_t Accumulate(const std::string& digits) {
    uint32_t value = 0;
    for (const char digit : digits) value = value * 10 + static_cast<uint32_t>(digit - '0');
    return value;
  }

  // The last character takes part only in being there.
  Token Take(bool isReal) {
    Token token;
    const size_t last = rest_.size() - std::min<size_t>(rest_.size(), 1);
    bool afterPoint = false;
    for (size_t i = 0; i < last; ++i) {
      const char character = rest_[i];
      std::string& digits = afterPoint ? token.fraction : token.whole;
      if (kDigits.find(character) != std::string_view::npos) {
        digits += character;
      } else if (character == '-' && !afterPoint) {
        token.isNegative = true;
      } else if (character == '.' && isReal && !afterPoint) {
        afterPoint = true;
      } else if (character != ' ') {
        rest_.clear();
        return {};
      } else if (!digits.empty()) {
        rest_.erase(0, i + 1);
        return token;
      }
    }
    rest_.erase(0, std::max<size_t>(last, 1));
    return token;
  }

  std::string rest_;
};

HaarFeature ReadFeature(Record& record) {
  std::vector<CascadeRectangle> rectangles(static_cast<size_t>(record.Count(12)));
  for (CascadeRectangle& rectangle : rectangles) {
    rectangle.x = record.Integer();
    rectangle.y = record.Integer();
    rectangle.width = record.Integer();
    rectangle.height = record.Integer();
    record.Integer();
    rectangle.weight = record.Real();
  }
  rectangles.resize(3);
  HaarFeature feature = {};
  std::copy(rectangles.begin(), rectangles.end(), feature.rectangles);
  feature.tilted = record.Word().starts_with("tilted") ? 1 : 0;
  return feature;
}

ReferenceTree ReadTree(Record& record) {
  ReferenceTree tree;
  const int32_t nodes = record.Count(10);
  for (int32_t i = 0; i < nodes; ++i) {
    tree.features.push_back(ReadFeature(record));
    tree.thresholds.push_back(record.Real());
    tree.left.push_back(record.Integer());
    tree.right.push_back(record.Integer());
  }
  for (int32_t i = 0; i <= nodes; ++i) tree.leaves.push_back(record.Real());
  return tree;
}

bool Alike(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
}

bool AllAlike(const std::vector<float>& expected, const float* actual) {
  return std::equal(expected.begin(), expected.end(), actual, Alike);
}

bool AlikeFeatures(const HaarFeature& a, const HaarFeature& b) {
  return a.tilted == b.tilted &&
         std::equal(std::begin(a.rectangles), std::end(a.rectangles), b.rectangles,
                    [](const CascadeRectangle& c, const CascadeRectangle& d) {
                      return c.x == d.x && c.y == d.y && c.width == d.width &&
                             c.height == d.height && Alike(c.weight, d.weight);
                    });
}

std::string CompareTrees(const ReferenceTree& expected, const CascadeTree& actual) {
  if (std::cmp_not_equal(actual.nodeCount, expected.features.size())) return "nodeCount";
  if (!std::equal(expected.features.begin(), expected.features.end(), actual.features,
                  AlikeFeatures)) {
    return "features";
  }
  if (!AllAlike(expected.thresholds, actual.thresholds)) return "thresholds";
  if (!std::equal(expected.left.begin(), expected.left.end(), actual.left)) return "left";
  if (!std::equal(expected.right.begin(), expected.right.end(), actual.right)) return "right";
  return AllAlike(expected.leaves, actual.leaves) ? "" : "leaves";
}

}  // namespace

ReferenceCascade ReferenceReadFaceCascade(const std::vector<std::string>& records) {
  ReferenceCascade cascade;
  for (const std::string& text : records) {
    Record record(text);
    ReferenceStage stage;
    const int32_t trees = record.Count(4);
    for (int32_t i = 0; i < trees; ++i) stage.trees.push_back(ReadTree(record));
    stage.threshold = record.Real();
    cascade.push_back(stage);
  }
  return cascade;
}

std::string CompareCascades(const ReferenceCascade& expected, const FaceCascade& actual) {
  if (std::cmp_not_equal(actual.stageCount, expected.size())) return "stageCount";
  for (size_t i = 0; i < expected.size(); ++i) {
    const std::string stage = "stage " + std::to_string(i) + ": ";
    if (std::cmp_not_equal(actual.stages[i].treeCount, expected[i].trees.size())) {
      return stage + "treeCount";
    }
    for (size_t j = 0; j < expected[i].trees.size(); ++j) {
      const std::string wrong = CompareTrees(expected[i].trees[j], actual.stages[i].trees[j]);
      if (wrong.empty()) continue;
      return std::string(stage).append("tree ").append(std::to_string(j)).append(": " + wrong);
    }
    if (!Alike(expected[i].threshold, actual.stages[i].threshold)) return stage + "threshold";
  }
  return "";
}

}  // namespace kolm
