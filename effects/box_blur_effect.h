// The box blur. It is an EffectRoutine (module/kolm.h).
#pragma once

#include <stdint.h>

namespace kolm {

// Id 5: each pixel becomes the truncated mean of the square window of radius `parameter` around it,
// clipped to the frame. The radius is at most half the frame's smaller side; 0 is a copy, and so is
// a frame of odd width.
void BoxBlur(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
             uint32_t parameter);

}  // namespace kolm
