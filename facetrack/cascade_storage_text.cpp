// Lines are short, since OpenCV copies what it reads line by line.
#include "facetrack/cascade_storage_text.h"

#include <math.h>

#include <charconv>
#include <utility>

namespace kolm {
namespace {

void AppendInteger(std::string* text, int64_t value) {
  char digits[24];
  const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, value);
  text->append(digits, result.ptr);
}

void AppendScaled(std::string* text, int64_t digits, int exponent) {
  AppendInteger(text, digits);
  if (exponent == 0) return;
  *text += 'e';
  AppendInteger(text, exponent);
}

// Appends a decimal that reads as the same float again, be it read as a double first.
void AppendReal(std::string* text, float value) {
  if (signbit(value)) *text += '-';
  if (value == 0.0f) {
    *text += "0.";
    return;
  }
  double magnitude = fabs(static_cast<double>(value));
  // Mostly a whole number, or one of six digits behind the point. The quotient is the double next
  // to that decimal: what it is read as.
  for (const auto& [scale, exponent] : {std::pair(1.0, 0), std::pair(1e6, -6)}) {
    const double digits = floor(magnitude * scale + 0.5);
    if (digits < 1e9 && static_cast<float>(digits / scale) == static_cast<float>(magnitude)) {
      AppendScaled(text, static_cast<int64_t>(digits), exponent);
      return;
    }
  }
  // Otherwise nine digits. Each scaling is off by up to 2^-53 of the value and there are fewer than
  // 60, the digits by up to half of 10^-8: far less together than the 2^-25 between a float and the
  // end of what is rounded to it.
  int exponent = 0;
  while (magnitude >= 1e9) {
    magnitude /= 10.0;
    ++exponent;
  }
  while (magnitude < 1e8) {
    magnitude *= 10.0;
    --exponent;
  }
  AppendScaled(text, llround(magnitude), exponent);
}

// A stump's leaves are taken as left and right, whatever its links say.
void AppendTree(std::string* text, const CascadeTree& tree, int64_t firstFeature) {
  const bool isStump = tree.nodeCount == 1;
  *text += "{\"internalNodes\":[";
  for (int32_t i = 0; i < tree.nodeCount; ++i) {
    if (i > 0) *text += ',';
    AppendInteger(text, isStump ? 0 : tree.left[i]);
    *text += ',';
    AppendInteger(text, isStump ? -1 : tree.right[i]);
    *text += ',';
    AppendInteger(text, firstFeature + i);
    *text += ',';
    AppendReal(text, tree.thresholds[i]);
  }
  *text += "],\"leafValues\":[";
  for (int32_t i = 0; i <= tree.nodeCount; ++i) {
    if (i > 0) *text += ',';
    const int32_t stumpLeaf = -(i == 0 ? tree.left[0] : tree.right[0]);
    AppendReal(text, tree.leaves[isStump ? stumpLeaf : i]);
  }
  *text += "]}";
}

// A third rectangle without weight is as good as none.
void AppendFeature(std::string* text, const HaarFeature& feature) {
  const int count = feature.rectangles[2].weight == 0.0f ? 2 : 3;
  *text += "{\"rects\":[";
  for (int i = 0; i < count; ++i) {
    const CascadeRectangle& rectangle = feature.rectangles[i];
    *text += i == 0 ? "[" : ",[";
    for (const int32_t number : {rectangle.x, rectangle.y, rectangle.width, rectangle.height}) {
      AppendInteger(text, number);
      *text += ',';
    }
    AppendReal(text, rectangle.weight);
    *text += ']';
  }
  *text += feature.tilted != 0 ? "],\"tilted\":1}" : "]}";
}

}  // namespace

std::string CascadeStorageText(const FaceCascade& cascade) {
  std::string text;
  text.reserve(512 * 1024);
  text += "{\"stageType\":\"BOOST\",\"featureType\":\"HAAR\",\"width\":";
  AppendInteger(&text, cascade.width);
  text += ",\"height\":";
  AppendInteger(&text, cascade.height);
  text += ",\"featureParams\":{\"maxCatCount\":0},\n\"stages\":[";
  int64_t features = 0;
  for (int32_t i = 0; i < cascade.stageCount; ++i) {
    const CascadeStage& stage = cascade.stages[i];
    text += i == 0 ? "{\"stageThreshold\":" : ",{\"stageThreshold\":";
    AppendReal(&text, stage.threshold);
    text += ",\"weakClassifiers\":[\n";
    for (int32_t j = 0; j < stage.treeCount; ++j) {
      if (j > 0) text += ",\n";
      AppendTree(&text, stage.trees[j], features);
      features += stage.trees[j].nodeCount;
    }
    text += "]}";
  }
  text += "],\n\"features\":[";
  bool isFirst = true;
  for (int32_t i = 0; i < cascade.stageCount; ++i) {
    const CascadeStage& stage = cascade.stages[i];
    for (int32_t j = 0; j < stage.treeCount; ++j) {
      for (int32_t k = 0; k < stage.trees[j].nodeCount; ++k) {
        text += isFirst ? "\n" : ",\n";
        isFirst = false;
        AppendFeature(&text, stage.trees[j].features[k]);
      }
    }
  }
  text += "]}\n";
  return text;
}

}  // namespace kolm
