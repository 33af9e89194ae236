// The face cascade as read from its text records: what the detector is built from. It lives only
// while the detector is being built.
#pragma once

#include <stdint.h>

namespace kolm {

// Pixels of the detection window.
struct CascadeRectangle {
  int32_t x, y, width, height;
  float weight;
};

struct HaarFeature {
  int32_t tilted;  // 1: the rectangles are rotated by 45 degrees
  CascadeRectangle rectangles[3];
};

// A decision tree of nodeCount nodes, none if that is negative; its arrays share one block.
struct CascadeTree {
  int32_t nodeCount;
  HaarFeature* features;
  float* thresholds;
  int32_t* left;  // above 0 another node's index, otherwise minus a leaf's index
  int32_t* right;
  float* leaves;  // nodeCount + 1, none if nodeCount is negative
};

struct CascadeStage {
  int32_t treeCount;  // negative: no trees
  float threshold;
  CascadeTree* trees;
};

struct FaceCascade {
  int32_t stageCount;
  int32_t width, height;  // of the detection window
  CascadeStage* stages;
};

// Reads the built-in records, whatever the name. Returns null if there is no memory.
FaceCascade* LoadFaceCascade(const char* name, int32_t width, int32_t height);

// Reads `records`, one per stage, up to a null pointer. A record ends where it cannot be read: all
// its values from there on are 0. Counts are as they are written, but for one above the number of
// characters behind it, which is cut to that. Null if there is no memory.
FaceCascade* ReadFaceCascade(const char* const* records, int32_t width, int32_t height);

// Null is fine.
void ReleaseFaceCascade(FaceCascade* cascade);

}  // namespace kolm
