// Effects that compute a pixel's luma from its neighbours'. All are EffectRoutines (module/kolm.h).
#pragma once

#include <stdint.h>

namespace kolm {

// Id 6: blocks of 4 * parameter pixels in the colour of their top-left pixel; 0 is a copy, and so
// is a block that does not fit the frame.
void Pixelate(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
              uint32_t parameter);

// Id 7: difference to the upper-left neighbour on mid-grey.
void EmbossGrey(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                uint32_t parameter);

// Id 8: the same over the picture's own colours, written one row higher.
void EmbossColour(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                  uint32_t parameter);

// Id 10: difference to the upper-left neighbour as a wrapped byte on black.
void EdgeReliefGrey(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                    uint32_t parameter);

// Id 11: the same over the picture's own colours, written one row higher.
void EdgeReliefColour(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                      uint32_t parameter);

// Id 12: dark lines on white, by the largest of five compass gradients.
void Sketch(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
            uint32_t parameter);

}  // namespace kolm
