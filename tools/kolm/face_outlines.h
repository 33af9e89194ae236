// Shows in a frame what the face tracker makes of it.
#pragma once

#include <cstdint>

#include "tools/kolm/face_follower.h"

namespace kolm {

// In hues that all eyes can tell apart, and of different brightness: red, green, blue.
struct OutlineColour {
  uint8_t r, g, b;
};
constexpr OutlineColour kShownColour = {255, 128, 0};    // orange
constexpr OutlineColour kTargetColour = {64, 190, 255};  // sky blue
constexpr OutlineColour kFacesColour = {255, 255, 255};  // white

// Outlines in a packed frame without padding, in lines of `line` pixels: what is shown solid, with
// the rest darkened, the target dashed, the faces' box dotted.
void DrawOutlines(uint8_t* frame, int width, int height, const FaceView& view, int line);

// In a frame of another size.
FaceView Scaled(const FaceView& view, double scale);

}  // namespace kolm
