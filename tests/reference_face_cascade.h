// The cascade's reader in its simplest form.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "facetrack/face_cascade.h"

namespace kolm {

struct ReferenceTree {
  int32_t nodeCount;
  std::vector<HaarFeature> features;
  std::vector<float> thresholds;
  std::vector<int32_t> left, right;
  std::vector<float> leaves;
};

struct ReferenceStage {
  int32_t treeCount;
  std::vector<ReferenceTree> trees;
  float threshold;
};

using ReferenceCascade = std::vector<ReferenceStage>;

ReferenceCascade ReferenceReadFaceCascade(const std::vector<std::string>& records);

// An empty string, or what the first difference is in. Floats are alike if their bits are, or if
// neither is a number.
std::string CompareCascades(const ReferenceCascade& expected, const FaceCascade& actual);

}  // namespace kolm
