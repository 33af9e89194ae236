// Turns frames upright as their container tells to.
#pragma once

#include "tools/kolm/frame_conversion.h"
#include "tools/kolm/media.h"

namespace kolm {

// Quarter turns and mirrorings, as telephones note them in their videos.
class FrameRotation {
 public:
  // Of a display matrix as libavutil describes it. What is no multiple of 90 degrees counts as
  // none.
  explicit FrameRotation(const int32_t* matrix);

  bool IsNone() const { return !transposes_ && !mirrorsRows_ && !mirrorsColumns_; }

  // Width and height change places.
  bool Transposes() const { return transposes_; }

  // A frame in BT.601 limited range, with colours for each pixel. Throws Failure.
  FramePointer Turn(const AVFrame& frame);

 private:
  bool transposes_ = false;      // before the mirroring
  bool mirrorsRows_ = false;     // left and right change places
  bool mirrorsColumns_ = false;  // top and bottom
  FrameConverter converter_;
};

}  // namespace kolm
