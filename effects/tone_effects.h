// Effects that map each byte of a frame by itself. All are EffectRoutines (module/kolm.h).
#pragma once

#include <stdint.h>

namespace kolm {

// Id 3: luma kept, chroma 128.
void Grayscale(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
               uint32_t parameter);

// Id 4: luma kept, U 96, V 150.
void Sepia(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
           uint32_t parameter);

// Id 13: luma 255 - Y; chroma mirrored about 128, modulo 256, so that 0 stays 0.
void Negative(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
              uint32_t parameter);

// Id 14: 2 * (11 - parameter) levels for each byte; none is left at 11, which paints every byte 16.
// Parameter 0, and any beyond 11, is a copy.
void Posterize(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
               uint32_t parameter);

}  // namespace kolm
