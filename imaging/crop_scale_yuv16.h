// Cuts a rectangle out of a Yuv16Frame and scales it to another size, in 16.16 fixed point.
//
// Destination pixel (i, j) is sampled at column cropX + i * stepX and row cropY + j * stepY, where
// stepX = (cropWidth << 16) / dstWidth; docs/scaling.md draws the positions. Destination rows are
// made of whole pixel pairs: an odd dstWidth gives rows of dstWidth + 1 pixels.
//
// The caller vouches for: an even srcWidth, a rectangle inside the source whose sizes and positions
// are at most 32767, a destination of 4 * ((dstWidth + 1) / 2) * dstHeight bytes, no overlap. The
// pixel that completes an odd dstWidth is sampled up to one column right of the rectangle: where
// that leaves the source's last row, 4 bytes behind the source must be readable. A destination size
// of 0 or below writes nothing. Level: any.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace kolm {

// Nearest sample. A pair's chroma is the floor mean of the chroma at its two sampled positions.
void CropScaleYUV16(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                    int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                    int32_t cropWidth, int32_t cropHeight);

// The same into a part of a larger picture: dstStride bytes from one destination row to the next.
void CropScaleYUV16ToRows(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                          size_t dstStride, int32_t dstWidth, int32_t dstHeight, int32_t cropX,
                          int32_t cropY, int32_t cropWidth, int32_t cropHeight);

// The same for any rectangle, source width and size: nothing outside the source is read. Bytes that
// are missing there are taken from the nearest row, and beyond the first and last row's ends from
// the first and last pixel pair (docs/scaling.md). Where the rectangle lies inside it costs no more
// than CropScaleYUV16. A source of fewer than 4 bytes writes nothing.
void CropScaleYUV16Inside(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                          int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                          int32_t cropWidth, int32_t cropHeight);

// Bilinear, with plain averages at the right edge (vertical) and in the bottom rows (horizontal).
// When it enlarges to the source's right edge, the bottom rows read up to one pixel pair (4 bytes)
// behind their source row, which for the last row lies behind the source frame: those bytes must be
// readable.
void CropScaleYUV16Bilinear(const uint8_t* src, int32_t srcWidth, int32_t srcHeight, uint8_t* dst,
                            int32_t dstWidth, int32_t dstHeight, int32_t cropX, int32_t cropY,
                            int32_t cropWidth, int32_t cropHeight);

}  // namespace kolm
