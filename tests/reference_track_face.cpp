// Numbers are 32 bits wide and wrap, so that every formula holds for any record.
#include "tests/reference_track_face.h"

#include <algorithm>
#include <compare>
#include <cstdio>

namespace kolm::reference {
namespace {

struct Number {
  Number() = default;
  Number(int64_t any) : value(static_cast<int32_t>(any)) {}
  auto operator<=>(const Number&) const = default;

  int64_t value = 0;
};

Number operator+(Number a, Number b) { return a.value + b.value; }
Number operator-(Number a, Number b) { return a.value - b.value; }
Number operator*(Number a, Number b) { return a.value * b.value; }
Number operator/(Number a, Number b) { return b == 0 ? 0 : a.value / b.value; }

struct Rectangle {
  Number x, y, w, h;
  bool operator==(const Rectangle&) const = default;
};

std::string Line(const char* start, const Rectangle& r) {
  std::string line = start;
  for (const Number number : {r.x, r.y, r.w, r.h}) line += std::to_string(number.value) + ", ";
  return line.substr(0, line.size() - 2) + "\n";
}

Rectangle MergeFaces(const FaceTracker& t, const std::vector<FaceRectangle>& faces) {
  const Number W0 = t.frameWidth, H0 = t.frameHeight;
  const Number sx = W0 * 1000 / t.detectWidth, sy = H0 * 1000 / t.detectHeight;
  Rectangle box = {W0, H0, 0, 0};
  for (const auto& [x, y, w, h] : faces) {
    const Number x1 = std::max<Number>(Number(x) - 20, 0);
    const Number y1 = std::max<Number>(Number(y) - 20, 0);
    Number ww = Number(x) + w + 20 - x1;
    Number hh = Number(y) + h + 20 - y1;
    if (x1 + ww > Number(t.detectWidth) - 1) ww = Number(t.detectWidth) - x1;
    if (y1 + hh > Number(t.detectHeight) - 1) hh = Number(t.detectHeight) - y1;
    const Rectangle face = {x1 * sx / 1000, y1 * sy / 1000, ww * sx / 1000, hh * sy / 1000};
    box.x = std::min(box.x, face.x);
    box.y = std::min(box.y, face.y);
    box.w = box.w + box.x < face.x + face.w ? face.x + face.w - box.x : face.w;
    box.h = box.y < face.y ? face.y + face.h - box.y : face.h;
  }
  return box;
}

Rectangle Fit(const FaceTracker& t, Rectangle box) {
  const Number W0 = t.frameWidth, H0 = t.frameHeight;
  if (W0 * box.h > H0 * box.w) {
    box.w = W0 * box.h / H0;
    if (box.w + box.x >= W0) box.x = W0 - box.w - 1;
    if (box.x < 0) box.x = 0;
  } else {
    box.h = H0 * box.w / W0;
    if (box.h + box.y >= H0) box.y = H0 - box.h - 1;
    if (box.y < 0) box.y = 0;
  }
  return box;
}

Rectangle Step(const Rectangle& crop, const Rectangle& target, Number steps) {
  return {crop.x + (target.x - crop.x) / steps, crop.y + (target.y - crop.y) / steps,
          crop.w + (target.w - crop.w) / steps, crop.h + (target.h - crop.h) / steps};
}

Rectangle Clamped(const FaceTracker& t, Rectangle r) {
  const Number W0 = t.frameWidth, H0 = t.frameHeight;
  r.w = std::min(r.w, W0);
  r.h = std::min(r.h, H0);
  for (Number* number : {&r.w, &r.h, &r.x, &r.y}) *number = std::max<Number>(*number, 0);
  if (r.w + r.x >= W0) r.x = W0 - r.w - 1;
  if (r.h + r.y >= H0) r.y = H0 - r.h - 1;
  return r;
}

int32_t Value(Number number) { return static_cast<int32_t>(number.value); }

}  // namespace

TrackedFrame TrackFace(FaceTracker t, const Bytes& source,
                       const std::vector<FaceRectangle>& faces) {
  TrackedFrame frame = {};
  const Number W0 = t.frameWidth, H0 = t.frameHeight;
  const bool hasPicture = W0 > 0 && H0 > 0;
  Rectangle crop = {t.cropX, t.cropY, t.cropWidth, t.cropHeight};
  Rectangle target = {t.targetX, t.targetY, t.targetWidth, t.targetHeight};
  bool copied = false;

  const Rectangle box = MergeFaces(t, faces);
  frame.lines.push_back(Line("YUV16_Face 1........... ", box));

  const bool found = box.w < W0 && box.h < H0 && box.w >= 1 && box.h >= 1;
  const bool isMoving = t.stepIndex < static_cast<uint32_t>(t.stepCount) - 1;
  if (found) t.missCount = 0;
  if (found && box != target) {
    target = Fit(t, box);
    frame.lines.push_back(Line("YUV16_Face x, y, w, h........... ", target));
    crop = Step(crop, target, t.stepCount);
    t.stepIndex = 1;
  } else if (isMoving) {
    crop = Clamped(t, Step(crop, target, Number(t.stepCount) - t.stepIndex));
    t.stepIndex += 1;
  } else if (found) {
    crop = target;
  } else if ((box.w < 1 || box.h < 1) && target.w == W0 && target.h == H0) {
    copied = true;
  } else {
    crop = target;
    if (t.resetWhenLost != 0 && ++t.missCount > static_cast<uint32_t>(t.stepCount)) {
      t.stepIndex = 0;
      t.missCount = 0;
      target = {0, 0, W0, H0};
    }
  }

  t.cropX = Value(crop.x);
  t.cropY = Value(crop.y);
  t.cropWidth = Value(crop.w);
  t.cropHeight = Value(crop.h);
  t.targetX = Value(target.x);
  t.targetY = Value(target.y);
  t.targetWidth = Value(target.w);
  t.targetHeight = Value(target.h);
  frame.tracker = t;
  if (hasPicture) {
    frame.picture = copied
                        ? source
                        : CropScaleYuv16Inside(source, Value(W0), Value(H0), Value(W0), Value(H0),
                                               {t.cropX, t.cropY, t.cropWidth, t.cropHeight});
  }
  return frame;
}

std::string Describe(const FaceTracker& t) {
  char text[512];
  std::snprintf(
      text, sizeof text,
      "frame %u x %u, detection %d x %d at %u, misses %u, step %u of %d, crop %d, %d, %d, "
      "%d, target %d, %d, %d, %d, reset %d, pointers %p %p %p %p",
      t.frameWidth, t.frameHeight, t.detectWidth, t.detectHeight, t.scaleFactorMilli, t.missCount,
      t.stepIndex, t.stepCount, t.cropX, t.cropY, t.cropWidth, t.cropHeight, t.targetX, t.targetY,
      t.targetWidth, t.targetHeight, t.resetWhenLost, static_cast<const void*>(t.srcFrame),
      static_cast<void*>(t.dstFrame), t.faceStorage, t.detectionImage);
  return text;
}

}  // namespace kolm::reference
