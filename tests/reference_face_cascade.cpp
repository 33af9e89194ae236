// A walk over the record, character by character, with nothing planned ahead.
#include "tests/reference_face_cascade.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace kolm {
namespace {

class Walk {
 public:
  explicit Walk(std::string_view record) : rest_(record) {}

  int32_t Integer() {
    Number number;
    return Step(number, false)
               ? static_cast<int32_t>(number.negative ? -number.value : number.value)
               : 0;
  }

  float Real() {
    Number number;
    if (!Step(number, true)) return 0.0f;
    auto divisor = static_cast<int32_t>(number.negative ? -1 : 1);
    for (size_t i = 0; i < number.decimals; ++i) {
      divisor = static_cast<int32_t>(static_cast<uint32_t>(divisor) * 10);
    }
    return static_cast<float>(static_cast<int32_t>(number.value)) / static_cast<float>(divisor);
  }

  // How often something is read: not more often than there are characters.
  int32_t Count() {
    const int64_t count = Integer();
    return static_cast<int32_t>(std::min(count, static_cast<int64_t>(rest_.size())));
  }

  bool NameIsTilted() {
    while (rest_.starts_with(' ')) rest_.remove_prefix(1);
    const bool isTilted = !failed_ && rest_.starts_with("tilted");
    while (!rest_.empty() && !rest_.starts_with(' ')) rest_.remove_prefix(1);
    if (!rest_.empty()) rest_.remove_prefix(1);
    return isTilted;
  }

 private:
  struct Number {
    uint32_t value = 0;
    size_t digits = 0, decimals = 0;
    bool negative = false, hasPoint = false;
  };

  // False if there is no number.
  bool Step(Number& number, bool isReal) {
    if (failed_ || rest_.empty()) return false;
    if (rest_.size() == 1) {
      rest_ = {};
      return false;
    }
    const std::string_view all = rest_;
    while (rest_.size() > 1) {  // the last one is out of sight
      const char character = rest_.front();
      rest_.remove_prefix(1);
      if (character >= '0' && character <= '9') {
        number.value = number.value * 10 + static_cast<uint32_t>(character - '0');
        ++(number.hasPoint ? number.decimals : number.digits);
      } else if (character == ' ') {
        if ((number.hasPoint ? number.decimals : number.digits) > 0) break;
      } else if (character == '-' && !number.hasPoint) {
        number.negative = true;
      } else if (character == '.' && isReal && !number.hasPoint) {
        number.hasPoint = true;
      } else {
        rest_ = all;
        failed_ = true;
        return false;
      }
    }
    return true;
  }

  std::string_view rest_;
  bool failed_ = false;  // and so would all that follows
};

HaarFeature ReadFeature(Walk& walk) {
  HaarFeature feature = {};
  const int32_t count = walk.Count();
  for (int32_t i = 0; i < count; ++i) {
    CascadeRectangle beyond = {};
    CascadeRectangle& rectangle = i < 3 ? feature.rectangles[i] : beyond;
    rectangle.x = walk.Integer();
    rectangle.y = walk.Integer();
    rectangle.width = walk.Integer();
    rectangle.height = walk.Integer();
    walk.Integer();
    rectangle.weight = walk.Real();
  }
  feature.tilted = walk.NameIsTilted() ? 1 : 0;
  return feature;
}

ReferenceTree ReadTree(Walk& walk) {
  ReferenceTree tree;
  tree.nodeCount = walk.Count();
  for (int32_t i = 0; i < tree.nodeCount; ++i) {
    tree.features.push_back(ReadFeature(walk));
    tree.thresholds.push_back(walk.Real());
    tree.left.push_back(walk.Integer());
    tree.right.push_back(walk.Integer());
  }
  for (int32_t i = 0; i <= tree.nodeCount; ++i) tree.leaves.push_back(walk.Real());
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
  if (actual.nodeCount != expected.nodeCount) return "nodeCount";
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
  for (const std::string& record : records) {
    Walk walk(record);
    ReferenceStage stage;
    stage.treeCount = walk.Count();
    for (int32_t i = 0; i < stage.treeCount; ++i) stage.trees.push_back(ReadTree(walk));
    stage.threshold = walk.Real();
    cascade.push_back(stage);
  }
  return cascade;
}

std::string CompareCascades(const ReferenceCascade& expected, const FaceCascade& actual) {
  if (static_cast<size_t>(actual.stageCount) != expected.size()) return "stageCount";
  for (size_t i = 0; i < expected.size(); ++i) {
    const std::string stage = "stage " + std::to_string(i) + ": ";
    if (actual.stages[i].treeCount != expected[i].treeCount) {
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
