// The 18 effects once more, pixel by pixel, to compare the module's against.
#pragma once

#include <array>
#include <cstdint>

#include "tests/reference_scaling.h"

namespace kolm::reference {

// The bytes that effect `id` writes: the frame, and the rest of its last pixel pair where an effect
// writes whole pairs of a frame with an odd number of pixels. `source` holds the frame, and the
// rest of that pair.
Bytes ApplyEffect(uint32_t id, const Bytes& source, uint32_t width, uint32_t height,
                  uint32_t parameter);

// The box blur of a frame of even width, one pixel pair of it.
std::array<uint8_t, 4> BlurredPair(const Bytes& source, uint32_t width, uint32_t height,
                                   uint32_t parameter, uint32_t pair, uint32_t row);

// The blur's radius at this frame size.
uint32_t BlurRadius(uint32_t width, uint32_t height, uint32_t parameter);

}  // namespace kolm::reference
