// Ellipses with soft edges: head, eyes, brows, nose, mouth.
#include "tests/drawn_face.h"

#include <algorithm>
#include <cmath>

namespace kolm {
namespace {

constexpr uint8_t kBackground = 90;

// In units of the face's radius.
struct Ellipse {
  double x, y, halfWidth, halfHeight;
  int luma;
};

constexpr Ellipse kFace[] = {
    {0.0, 0.0, 0.8, 1.1, 180},      {-0.35, -0.25, 0.22, 0.12, 60}, {0.35, -0.25, 0.22, 0.12, 60},
    {-0.35, -0.45, 0.26, 0.06, 90}, {0.35, -0.45, 0.26, 0.06, 90},  {0.0, 0.05, 0.1, 0.3, 200},
    {0.0, 0.3, 0.18, 0.06, 130},    {0.0, 0.62, 0.3, 0.08, 90},
};

// 1 inside, 0 outside, in between along the edge.
double Coverage(const Ellipse& ellipse, double x, double y) {
  constexpr double kEdge = 0.15;
  const double distance =
      std::hypot((x - ellipse.x) / ellipse.halfWidth, (y - ellipse.y) / ellipse.halfHeight);
  const double inside = (1.0 - distance) * std::min(ellipse.halfWidth, ellipse.halfHeight);
  return std::clamp(0.5 + inside / kEdge, 0.0, 1.0);
}

}  // namespace

reference::Bytes GreyFrame(uint32_t width, uint32_t height) {
  reference::Bytes frame(size_t{width} * height * 2, 128);
  for (size_t i = 0; i < frame.size(); i += 2) frame[i] = kBackground;
  return frame;
}

void DrawFace(reference::Bytes* frame, uint32_t width, uint32_t height, double centreX,
              double centreY, double radius) {
  // A little more than the head.
  const auto from = [&](double centre) {
    return static_cast<uint32_t>(std::max(centre - 1.3 * radius, 0.0));
  };
  const auto to = [&](double centre, uint32_t end) {
    return static_cast<uint32_t>(std::clamp<double>(centre + 1.3 * radius, 0, end));
  };
  for (uint32_t row = from(centreY); row < to(centreY, height); ++row) {
    for (uint32_t column = from(centreX); column < to(centreX, width); ++column) {
      uint8_t& luma = (*frame)[(size_t{row} * width + column) * 2];
      double shade = luma;
      for (const Ellipse& ellipse : kFace) {
        const double coverage =
            Coverage(ellipse, (column - centreX) / radius, (row - centreY) / radius);
        shade += (ellipse.luma - shade) * coverage;
      }
      luma = static_cast<uint8_t>(std::lround(shade));
    }
  }
}

}  // namespace kolm
