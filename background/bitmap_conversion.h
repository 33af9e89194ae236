// RGB pictures of 640 x 480 pixels made into background records, and others brought to that size.
// Rows are B, G, R or B, G, R, A in every pixel.
#pragma once

#include <stdint.h>

namespace kolm {

// A picture as a bitmap file stores it. Bytes beyond `bytes` count as zero.
struct StoredPicture {
  const uint8_t* pixels;
  uint64_t bytes;
  uint32_t stride;  // bytes from row to row
  int32_t width, height;
  int32_t pixelBytes;  // 3 or 4
};

// Bilinear in 16.16 fixed point to 640 x 480 pixels without padding, rows in the same order: writes
// 640 * 480 * pixelBytes bytes. Neighbours past the last column or row are that column or row.
void ResamplePicture(const StoredPicture& picture, uint8_t* target);

enum class RowOrder : int32_t { BottomUp = -1, TopDown = 1 };

// Converts 640 x 480 pixels of pixelBytes bytes to a record: BT.601 limited range, in 8-bit fixed
// point; a pair's chroma is its pixels' mean. Alpha is the pixels' fourth byte, or 255 where they
// have three.
void ConvertPicture(const uint8_t* pixels, int32_t pixelBytes, RowOrder order, uint8_t* record);

}  // namespace kolm
