// Effects that move pixels, all built on CropScaleYUV16. All are EffectRoutines (module/kolm.h).
// Where the arithmetic leaves no picture (see docs/effects.md) the frame is copied.
#pragma once

#include <stdint.h>

namespace kolm {

// Id 1: enlarges the centre; parameter 10 shows a quarter of the width and height.
void ZoomIn(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
            uint32_t parameter);

// Id 2: the whole picture, reduced, on black; parameter 10 leaves a quarter of width and height.
void ZoomOut(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
             uint32_t parameter);

// Id 9: the picture repeated `parameter` times across and down.
void PictureGrid(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                 uint32_t parameter);

// Ids 15 to 18: eight equal slices laid side by side (15, 16) or one below another (17, 18), the
// middle ones widened (bulge) or narrowed (pinch).
void HorizontalBulge(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                     uint32_t parameter);
void HorizontalPinch(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                     uint32_t parameter);
void VerticalBulge(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                   uint32_t parameter);
void VerticalPinch(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                   uint32_t parameter);

}  // namespace kolm
