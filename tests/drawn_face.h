// A drawn face that the detector finds, where and as large as a test wants it.
#pragma once

#include <cstdint>

#include "tests/reference_scaling.h"

namespace kolm {

// A grey Yuv16Frame.
reference::Bytes GreyFrame(uint32_t width, uint32_t height);

// Draws a face around a centre; its width is about 1.6 and its height 2.2 times `radius`. Windows
// of about 2.3 times `radius` find it. What lies outside the frame is cut off.
void DrawFace(reference::Bytes* frame, uint32_t width, uint32_t height, double centreX,
              double centreY, double radius);

}  // namespace kolm
