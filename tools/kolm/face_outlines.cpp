// Draws on packed frames, so that what is not drawn on keeps its bytes.
#include "tools/kolm/face_outlines.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kolm {
namespace {

struct Packed {
  uint8_t y, u, v;
};

// BT.601, limited range.
Packed PackedColour(OutlineColour colour) {
  const double r = colour.r / 255.0, g = colour.g / 255.0, b = colour.b / 255.0;
  const double y = 0.299 * r + 0.587 * g + 0.114 * b;
  return {static_cast<uint8_t>(std::lround(16 + 219 * y)),
          static_cast<uint8_t>(std::lround(128 + 112 * (b - y) / 0.886)),
          static_cast<uint8_t>(std::lround(128 + 112 * (r - y) / 0.701))};
}

constexpr Packed kCasing = {24, 128, 128};

struct Picture {
  uint8_t* bytes;
  int width, height;
};

// The part of the rectangle that lies in the frame; columns in whole pixel pairs.
void Fill(const Picture& picture, int left, int top, int right, int bottom, Packed colour) {
  left = std::max(left, 0) / 2;
  right = (std::min(right, picture.width) + 1) / 2;
  const uint8_t pair[] = {colour.y, colour.u, colour.y, colour.v};
  for (int y = std::max(top, 0); y < std::min(bottom, picture.height); ++y) {
    uint8_t* row = picture.bytes + static_cast<size_t>(y) * picture.width * 2;
    for (int x = left; x < right; ++x) std::memcpy(row + x * 4, pair, sizeof pair);
  }
}

void Darken(const Picture& picture, const Box& kept) {
  for (int y = 0; y < picture.height; ++y) {
    uint8_t* row = picture.bytes + static_cast<size_t>(y) * picture.width * 2;
    const bool isOutside = y < kept[1] || y >= kept[1] + kept[3];
    for (int x = 0; x < picture.width; ++x) {
      if (!isOutside && x >= kept[0] && x < kept[0] + kept[2]) continue;
      row[x * 2] = static_cast<uint8_t>(16 + std::max(row[x * 2] - 16, 0) * 45 / 100);
    }
  }
}

// Inside the box's border, `inset` pixels from it: in dashes of `dash` pixels, or solid for 0.
void Outline(const Picture& picture, const Box& box, int inset, int line, int dash, Packed colour) {
  const int left = box[0] + inset, top = box[1] + inset;
  const int right = box[0] + box[2] - inset, bottom = box[1] + box[3] - inset;
  const auto side = [&](int from, int to, auto fill) {
    const int length = dash == 0 ? std::max(to - from, 1) : dash;
    for (int at = from; at < to; at += dash == 0 ? length : 2 * dash) {
      fill(at, std::min(at + length, to));
    }
  };
  // A dark casing first, so that the line shows on any ground.
  for (const bool isCasing : {true, false}) {
    const int grown = isCasing ? (line + 2) / 3 : 0;
    const Packed paint = isCasing ? kCasing : colour;
    side(left, right, [&](int a, int b) {
      for (const int y : {top, bottom - line}) {
        Fill(picture, a - grown, y - grown, b + grown, y + line + grown, paint);
      }
    });
    side(top, bottom, [&](int a, int b) {
      for (const int x : {left, right - line}) {
        Fill(picture, x - grown, a - grown, x + line + grown, b + grown, paint);
      }
    });
  }
}

}  // namespace

void DrawOutlines(uint8_t* frame, int width, int height, const FaceView& view, int line) {
  const Picture picture = {frame, width, height};
  Darken(picture, view.shown);
  Outline(picture, view.shown, 0, line * 3 / 2, 0, PackedColour(kShownColour));
  Outline(picture, view.target, 0, line, 4 * line, PackedColour(kTargetColour));
  if (view.faces) Outline(picture, *view.faces, 3 * line, line, line, PackedColour(kFacesColour));
}

FaceView Scaled(const FaceView& view, double scale) {
  const auto scaled = [&](const Box& box) {
    const auto at = [&](int value) { return static_cast<int>(std::lround(value * scale)); };
    const Box result = {at(box[0]), at(box[1]), at(box[0] + box[2]) - at(box[0]),
                        at(box[1] + box[3]) - at(box[1])};
    return result;
  };
  FaceView result = {std::nullopt, scaled(view.target), scaled(view.shown)};
  if (view.faces) result.faces = scaled(*view.faces);
  return result;
}

}  // namespace kolm
