// Reads the face cascade from text. Where a record cannot be read it ends: all that is still
// missing of it is 0.
#include "facetrack/face_cascade.h"

#include <string.h>

#include "facetrack/default_face_cascade_text.h"
#include "module/memory.h"

namespace kolm {
namespace {

constexpr uintptr_t kAlignment = 32;

// The pool block's own address stands just below the aligned one.
void* AllocateAligned(size_t bytes) {
  void* block = KolmAllocate(sizeof block + kAlignment - 1 + bytes);
  if (block == nullptr) return nullptr;
  uint8_t* const firstUsable = static_cast<uint8_t*>(block) + sizeof block;
  uint8_t* const aligned =
      firstUsable + (0 - reinterpret_cast<uintptr_t>(firstUsable)) % kAlignment;
  memcpy(aligned - sizeof block, &block, sizeof block);
  return aligned;
}

void FreeAligned(void* aligned) {
  void* block;
  memcpy(&block, static_cast<uint8_t*>(aligned) - sizeof block, sizeof block);
  KolmFree(block);
}

// What is left of a record. Its very last character is never looked at by a number.
struct RecordText {
  const char* at;
  const char* end;
};

size_t CharactersLeft(const RecordText& text) { return static_cast<size_t>(text.end - text.at); }

// Nothing more is read from the record: a token that is no number would stop every later one too.
void EndRecord(RecordText* text) { text->at = text->end; }

enum class NumberKind { Integer, Real };

// A number as it is written: its digits without sign and point, and 10 to the power of the digits
// behind the point with the number's sign. Both wrap around in 32 bits.
struct WrittenNumber {
  uint32_t digits;
  uint32_t divisor;
};

WrittenNumber ReadNumber(RecordText* text, NumberKind kind) {
  constexpr WrittenNumber kZero = {0, 1};
  if (CharactersLeft(*text) < 2) {
    EndRecord(text);
    return kZero;
  }
  WrittenNumber number = kZero;
  bool isNegative = false;
  bool pointSeen = false;
  bool endsAtSpace = false;  // a digit was seen, behind the point if there is one
  const char* at = text->at;
  for (; at < text->end - 1; ++at) {
    if (*at >= '0' && *at <= '9') {
      number.digits = number.digits * 10 + static_cast<uint32_t>(*at - '0');
      if (pointSeen) number.divisor *= 10;
      endsAtSpace = true;
    } else if (*at == ' ') {
      if (!endsAtSpace) continue;
      ++at;
      break;
    } else if (*at == '-' && !pointSeen) {
      isNegative = true;
    } else if (*at == '.' && !pointSeen && kind == NumberKind::Real) {
      pointSeen = true;
      endsAtSpace = false;
    } else {
      EndRecord(text);
      return kZero;
    }
  }
  text->at = at;
  if (isNegative) number.divisor = 0 - number.divisor;
  return number;
}

int32_t ReadInteger(RecordText* text) {
  const WrittenNumber number = ReadNumber(text, NumberKind::Integer);
  return static_cast<int32_t>(number.digits * number.divisor);
}

// 32 or more digits behind the point leave a divisor of 0: the result is infinite, or no number.
float ReadReal(RecordText* text) {
  const WrittenNumber number = ReadNumber(text, NumberKind::Real);
  return static_cast<float>(static_cast<int32_t>(number.digits)) /
         static_cast<float>(static_cast<int32_t>(number.divisor));
}

// Each thing counted takes a character at least, as long as there is one. A count above what is
// left is cut to that: the rest would have nothing to be read from, and so all blocks and loops of
// a record together stay in proportion to its length.
int32_t ReadCount(RecordText* text) {
  const int32_t count = ReadInteger(text);
  const size_t most = CharactersLeft(*text);
  return count > 0 && static_cast<size_t>(count) > most ? static_cast<int32_t>(most) : count;
}

// Whether the next word begins with "tilted"; steps over it and the space behind it.
bool ReadNameIsTilted(RecordText* text) {
  while (text->at < text->end && *text->at == ' ') ++text->at;
  const char* const word = text->at;
  while (text->at < text->end && *text->at != ' ') ++text->at;
  const size_t length = static_cast<size_t>(text->at - word);
  if (text->at < text->end) ++text->at;
  constexpr char kTilted[] = {'t', 'i', 'l', 't', 'e', 'd'};
  return length >= sizeof kTilted && memcmp(word, kTilted, sizeof kTilted) == 0;
}

// The feature is zero so far.
void ReadFeature(RecordText* text, HaarFeature* feature) {
  const int32_t count = ReadCount(text);
  for (int32_t i = 0; i < count; ++i) {
    CascadeRectangle rectangle;
    rectangle.x = ReadInteger(text);
    rectangle.y = ReadInteger(text);
    rectangle.width = ReadInteger(text);
    rectangle.height = ReadInteger(text);
    ReadInteger(text);  // the band
    rectangle.weight = ReadReal(text);
    if (i < 3) feature->rectangles[i] = rectangle;
  }
  feature->tilted = ReadNameIsTilted(text) ? 1 : 0;
}

// The tree stays as it is if there is no memory.
bool ReadTree(RecordText* text, CascadeTree* tree) {
  const int32_t nodes = ReadCount(text);
  const size_t count = nodes < 0 ? 0 : static_cast<size_t>(nodes);
  const size_t leafCount = nodes < 0 ? 0 : count + 1;
  constexpr size_t kBytesPerNode = sizeof(HaarFeature) + 2 * sizeof(float) + 2 * sizeof(int32_t);
  const size_t bytes = count * kBytesPerNode + leafCount * sizeof(float);
  void* const block = AllocateAligned(bytes);
  if (block == nullptr) return false;
  KolmZero(block, bytes);
  tree->nodeCount = nodes;
  tree->features = static_cast<HaarFeature*>(block);
  void* const thresholds = tree->features + count;
  tree->thresholds = static_cast<float*>(thresholds);
  void* const left = tree->thresholds + count;
  tree->left = static_cast<int32_t*>(left);
  tree->right = tree->left + count;
  void* const leaves = tree->right + count;
  tree->leaves = static_cast<float*>(leaves);
  for (size_t i = 0; i < count; ++i) {
    ReadFeature(text, &tree->features[i]);
    tree->thresholds[i] = ReadReal(text);
    tree->left[i] = ReadInteger(text);
    tree->right[i] = ReadInteger(text);
  }
  for (size_t i = 0; i < leafCount; ++i) tree->leaves[i] = ReadReal(text);
  return true;
}

// The stage is zero so far. Trees that are still without a block have nothing to be given back.
bool ReadStage(const char* record, CascadeStage* stage) {
  RecordText text = {record, record + strlen(record)};
  const int32_t trees = ReadCount(&text);
  if (trees > 0) {
    const size_t bytes = static_cast<size_t>(trees) * sizeof(CascadeTree);
    stage->trees = static_cast<CascadeTree*>(AllocateAligned(bytes));
    if (stage->trees == nullptr) return false;
    KolmZero(stage->trees, bytes);
  }
  stage->treeCount = trees;
  for (int32_t i = 0; i < trees; ++i) {
    if (!ReadTree(&text, &stage->trees[i])) return false;
  }
  stage->threshold = ReadReal(&text);
  return true;
}

}  // namespace

FaceCascade* LoadFaceCascade(const char*, int32_t width, int32_t height) {
  return ReadFaceCascade(DefaultFaceCascadeText, width, height);
}

FaceCascade* ReadFaceCascade(const char* const* records, int32_t width, int32_t height) {
  size_t stages = 0;
  while (records[stages] != nullptr) ++stages;
  const size_t bytes = sizeof(FaceCascade) + stages * sizeof(CascadeStage);
  FaceCascade* const cascade = static_cast<FaceCascade*>(AllocateAligned(bytes));
  if (cascade == nullptr) return nullptr;
  KolmZero(cascade, bytes);
  cascade->stageCount = static_cast<int32_t>(stages);
  cascade->width = width;
  cascade->height = height;
  cascade->stages = reinterpret_cast<CascadeStage*>(cascade + 1);
  for (size_t i = 0; i < stages; ++i) {
    if (ReadStage(records[i], &cascade->stages[i])) continue;
    ReleaseFaceCascade(cascade);
    return nullptr;
  }
  return cascade;
}

void ReleaseFaceCascade(FaceCascade* cascade) {
  if (cascade == nullptr) return;
  for (int32_t i = 0; i < cascade->stageCount; ++i) {
    const CascadeStage& stage = cascade->stages[i];
    for (int32_t j = 0; j < stage.treeCount; ++j) {
      if (stage.trees[j].features != nullptr) FreeAligned(stage.trees[j].features);
    }
    if (stage.trees != nullptr) FreeAligned(stage.trees);
  }
  FreeAligned(cascade);
}

}  // namespace kolm
