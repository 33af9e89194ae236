// Zooms, the picture grid and the strip warps. Every picture is scaled straight to its place in the
// destination, so none of them needs a work buffer.
#include "effects/geometry_effects.h"

#include "effects/frame.h"
#include "imaging/crop_scale_yuv16.h"

namespace kolm {
namespace {

constexpr uint32_t kStrips = 8;

struct Rectangle {
  uint32_t x, y, width, height;
};

// Whether the scaler's positions, 16.16 fixed point in 32 bits, reach every pixel of the part.
bool FitsScaler(const Rectangle& part) {
  constexpr uint32_t kLargestSide = 32767;
  constexpr uint32_t kLargestPosition = 32767;
  const auto fits = [](uint32_t first, uint32_t size) {
    return size <= kLargestSide && first <= kLargestPosition &&
           first + size - 1 <= kLargestPosition;
  };
  return fits(part.x, part.width) && fits(part.y, part.height);
}

// Scales a part of the source frame into dstWidth x dstHeight pixels of a destination whose frame
// has the source's width.
void ScaleInto(const uint8_t* source, uint32_t width, uint32_t height, const Rectangle& part,
               uint8_t* destination, uint32_t dstWidth, uint32_t dstHeight) {
  CropScaleYUV16ToRows(source, static_cast<int32_t>(width), static_cast<int32_t>(height),
                       destination, RowBytes(width), static_cast<int32_t>(dstWidth),
                       static_cast<int32_t>(dstHeight), static_cast<int32_t>(part.x),
                       static_cast<int32_t>(part.y), static_cast<int32_t>(part.width),
                       static_cast<int32_t>(part.height));
}

// The side of the rectangle that ZoomIn shows: all of `side` at 0, a quarter at 10.
uint32_t ZoomInSide(uint32_t side, uint32_t parameter) {
  return ((side - side / 4) * (10 - parameter) / 10 + side / 4) & ~1u;
}

// The side of the picture that ZoomOut leaves.
uint32_t ZoomOutSide(uint32_t side, uint32_t parameter) {
  return (side - (side - side / 4) * parameter / 10) & ~1u;
}

enum class Warp { Bulge, Pinch };

// Divides a side into 8 strips that grow (bulge) or shrink (pinch) towards its middle: the outer
// three of each half measure unit, 2 * unit and 4 * unit, the fourth takes the rest of the half.
void DivideIntoStrips(uint32_t side, uint32_t unit, Warp warp, uint32_t strips[kStrips]) {
  const uint32_t rest = side / 2 - unit * 7;
  const uint32_t half[] = {unit, unit * 2, unit * 4, rest};
  for (uint32_t i = 0; i < 4; ++i) {
    const uint32_t size = half[warp == Warp::Bulge ? i : 3 - i];
    strips[i] = size;
    strips[kStrips - 1 - i] = size;
  }
}

// Slice number i of the 8 into which a side is cut.
uint32_t SliceStart(uint32_t side, uint32_t i) { return i * side / kStrips; }

void WarpHorizontally(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                      Warp warp) {
  const uint32_t unit = width / 60 * 2;
  const uint32_t sliceWidth = width / kStrips;
  const Rectangle lastSlice = {SliceStart(width, kStrips - 1), 0, sliceWidth, height};
  if (unit == 0 || width % 2 != 0 || !FitsScaler(lastSlice)) {
    CopyFrame(source, destination, width, height);
    return;
  }
  uint32_t strips[kStrips];
  DivideIntoStrips(width, unit, warp, strips);
  // Half an odd number of pixel pairs: the left half lends a column, so that pairs stay whole.
  if (width % 4 != 0) {
    const uint32_t rest = warp == Warp::Bulge ? 3 : 0;
    --strips[rest];
    ++strips[kStrips - 1 - rest];
  }
  for (uint32_t i = 0; i < kStrips; ++i) {
    const Rectangle slice = {SliceStart(width, i), 0, sliceWidth, height};
    ScaleInto(source, width, height, slice, destination, strips[i], height);
    destination += RowBytes(strips[i]);
  }
}

void WarpVertically(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                    Warp warp) {
  const uint32_t unit = height / 30;
  const uint32_t sliceHeight = height / kStrips;
  const Rectangle lastSlice = {0, SliceStart(height, kStrips - 1), width, sliceHeight};
  if (unit == 0 || width % 2 != 0 || !FitsScaler(lastSlice)) {
    CopyFrame(source, destination, width, height);
    return;
  }
  uint32_t strips[kStrips];
  DivideIntoStrips(height, unit, warp, strips);
  strips[kStrips - 1] += height % 2;  // the row that two halves leave over
  for (uint32_t i = 0; i < kStrips; ++i) {
    const Rectangle slice = {0, SliceStart(height, i), width, sliceHeight};
    ScaleInto(source, width, height, slice, destination, width, strips[i]);
    destination += FrameBytes(width, strips[i]);
  }
}

}  // namespace

void ZoomIn(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
            uint32_t parameter) {
  Rectangle centre = {};
  if (parameter >= 1 && parameter <= 10 && width % 2 == 0) {
    centre.width = ZoomInSide(width, parameter);
    centre.height = ZoomInSide(height, parameter);
    centre.x = ((width - centre.width) / 2) & ~1u;
    centre.y = ((height - centre.height) / 2) & ~1u;
  }
  if (centre.width == 0 || centre.height == 0 || !FitsScaler(centre)) {
    CopyFrame(source, destination, width, height);
    return;
  }
  ScaleInto(source, width, height, centre, destination, width, height);
}

void ZoomOut(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
             uint32_t parameter) {
  uint32_t reducedWidth = 0;
  uint32_t reducedHeight = 0;
  const Rectangle whole = {0, 0, width, height};
  if (parameter >= 1 && parameter <= 10 && FitsScaler(whole)) {
    reducedWidth = ZoomOutSide(width, parameter);
    reducedHeight = ZoomOutSide(height, parameter);
  }
  if (reducedWidth == 0 || reducedHeight == 0) {
    CopyFrame(source, destination, width, height);
    return;
  }
  const uint32_t top = (height - reducedHeight) / 2;
  const uint32_t left = ((width - reducedWidth) & ~3u) / 2;  // whole pixel pairs
  uint8_t* picture = destination + FrameBytes(width, top) + RowBytes(left);
  PaintBlack(destination, size_t{width} * top + left);
  ScaleInto(source, width, height, whole, picture, reducedWidth, reducedHeight);
  // From the end of each row of the picture to the start of the next, then to the frame's end.
  uint8_t* gap = picture + RowBytes(reducedWidth);
  for (uint32_t row = 1; row < reducedHeight; ++row) {
    PaintBlack(gap, width - reducedWidth);
    gap += RowBytes(width);
  }
  PaintBlack(gap, static_cast<size_t>(destination + FrameBytes(width, height) - gap) / 2);
}

void PictureGrid(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                 uint32_t parameter) {
  uint32_t tileWidth = 0;
  uint32_t tileHeight = 0;
  const Rectangle whole = {0, 0, width, height};
  if (static_cast<int32_t>(parameter) > 1 && width % 2 == 0 && FitsScaler(whole)) {
    tileWidth = (width / parameter) & ~1u;
    tileHeight = height / parameter;
  }
  if (tileWidth == 0 || tileHeight == 0) {
    CopyFrame(source, destination, width, height);
    return;
  }
  // The last column and the last row of tiles take what the division leaves over.
  const uint32_t lastColumn = tileWidth * (parameter - 1);
  const uint32_t lastRow = tileHeight * (parameter - 1);
  const uint32_t bandRows[] = {0, lastRow};
  for (const uint32_t y : bandRows) {
    const uint32_t bandHeight = y == 0 ? tileHeight : height - lastRow;
    uint8_t* band = destination + FrameBytes(width, y);
    ScaleInto(source, width, height, whole, band, tileWidth, bandHeight);
    ScaleInto(source, width, height, whole, band + RowBytes(lastColumn), width - lastColumn,
              bandHeight);
    for (uint32_t row = 0; row < bandHeight; ++row) {
      uint8_t* line = band + FrameBytes(width, row);
      for (uint32_t x = tileWidth; x < lastColumn; x += tileWidth) {
        KolmCopy(line + RowBytes(x), line, RowBytes(tileWidth));
      }
    }
  }
  for (uint32_t y = tileHeight; y < lastRow; y += tileHeight) {
    KolmCopy(destination + FrameBytes(width, y), destination, FrameBytes(width, tileHeight));
  }
}

void HorizontalBulge(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                     uint32_t /*parameter*/) {
  WarpHorizontally(source, destination, width, height, Warp::Bulge);
}

void HorizontalPinch(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                     uint32_t /*parameter*/) {
  WarpHorizontally(source, destination, width, height, Warp::Pinch);
}

void VerticalBulge(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                   uint32_t /*parameter*/) {
  WarpVertically(source, destination, width, height, Warp::Bulge);
}

void VerticalPinch(const uint8_t* source, uint8_t* destination, uint32_t width, uint32_t height,
                   uint32_t /*parameter*/) {
  WarpVertically(source, destination, width, height, Warp::Pinch);
}

}  // namespace kolm
