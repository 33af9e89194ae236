// Shapes and paint.
#include "tools/kolm/painting.h"

#include <algorithm>
#include <cmath>

namespace kolm::painting {
namespace {

constexpr int kFractionBits = 4;  // of the coordinates given to OpenCV's drawing calls

std::vector<cv::Point> Fixed(const Points& points) {
  std::vector<cv::Point> fixed;
  for (const Point& point : points) fixed.push_back(point * float{kDetail << kFractionBits});
  return fixed;
}

}  // namespace

Colour Rgb(int rgb) {
  return Colour(static_cast<float>(rgb & 0xFF), static_cast<float>(rgb >> 8 & 0xFF),
                static_cast<float>(rgb >> 16 & 0xFF)) /
         255;
}

Colour Mix(const Colour& a, const Colour& b, float share) { return a * (1 - share) + b * share; }

// ---- Shapes ----

Shape NoShape() { return Shape(kHeight * kDetail, kWidth * kDetail, uchar{0}); }

Points Curve(const Points& points, bool closed) {
  constexpr int kSteps = 12;
  const int count = static_cast<int>(points.size());
  const auto at = [&](int i) {
    return points[closed ? (i + count) % count : std::clamp(i, 0, count - 1)];
  };
  Points curve;
  for (int i = 0; i < (closed ? count : count - 1); ++i) {
    const Point a = at(i - 1), b = at(i), c = at(i + 1), d = at(i + 2);
    for (int step = 0; step < kSteps; ++step) {
      const float t = static_cast<float>(step) / kSteps;
      curve.push_back(0.5f * (2 * b + (c - a) * t + (2 * a - 5 * b + 4 * c - d) * (t * t) +
                              (3 * b - a - 3 * c + d) * (t * t * t)));
    }
  }
  if (!closed) curve.push_back(points.back());
  return curve;
}

Points Path(std::initializer_list<float> coordinates) {
  Points points;
  for (const float* x = coordinates.begin(); x != coordinates.end(); x += 2) {
    points.emplace_back(x[0], x[1]);
  }
  return points;
}

Shape Polygons(const std::vector<Points>& outlines) {
  Shape shape = NoShape();
  for (const Points& outline : outlines) {
    cv::fillPoly(shape, std::vector{Fixed(outline)}, 255, cv::LINE_AA, kFractionBits);
  }
  return shape;
}

Shape Polygon(const Points& outline) { return Polygons({outline}); }

Shape Rectangle(float left, float top, float right, float bottom) {
  return Polygon(Path({left, top, right, top, right, bottom, left, bottom}));
}

Shape Blob(const Points& points) { return Polygon(Curve(points, true)); }

Points EllipseOutline(Point centre, float radiusX, float radiusY, float angle) {
  constexpr int kCorners = 96;
  const float turn = angle * static_cast<float>(CV_PI) / 180;
  Points points;
  for (int i = 0; i < kCorners; ++i) {
    const float t = static_cast<float>(2 * CV_PI) * static_cast<float>(i) / kCorners;
    const float x = radiusX * std::cos(t), y = radiusY * std::sin(t);
    points.push_back(centre + Point(x * std::cos(turn) - y * std::sin(turn),
                                    x * std::sin(turn) + y * std::cos(turn)));
  }
  return points;
}

Shape Ellipse(Point centre, float radiusX, float radiusY, float angle) {
  return Polygon(EllipseOutline(centre, radiusX, radiusY, angle));
}

Points StrokeOutline(const Points& points, float thickness, bool tapers) {
  const Points line = Curve(points, false);
  Points outline, back;
  for (size_t i = 0; i < line.size(); ++i) {
    const Point along = line[std::min(i + 1, line.size() - 1)] - line[i == 0 ? 0 : i - 1];
    const float length = std::max(std::hypot(along.x, along.y), 1e-3f);
    const float share = static_cast<float>(i) / static_cast<float>(line.size() - 1);
    const float half =
        thickness / 2 * (tapers ? std::sin(static_cast<float>(CV_PI) * share) + 0.05f : 1);
    const Point across = Point(-along.y, along.x) * (half / length);
    outline.push_back(line[i] + across);
    back.push_back(line[i] - across);
  }
  outline.insert(outline.end(), back.rbegin(), back.rend());
  return outline;
}

Shape Stroke(const Points& points, float thickness, bool tapers) {
  return Polygon(StrokeOutline(points, thickness, tapers));
}

Shape operator&(const Shape& a, const Shape& b) {
  Shape both;
  cv::multiply(a, b, both, 1.0 / 255);
  return both;
}

Shape Soft(const Shape& shape, float radius) {
  const double sigma = radius * kDetail;
  const int reach = static_cast<int>(3 * sigma) + 1;
  cv::Rect area = cv::boundingRect(shape);
  area = cv::Rect(area.x - reach, area.y - reach, area.width + 2 * reach, area.height + 2 * reach) &
         cv::Rect({}, shape.size());
  Shape soft = NoShape();
  cv::GaussianBlur(shape(area), soft(area), {}, sigma, sigma, cv::BORDER_REPLICATE);
  return soft;
}

// ---- Paint ----

void Paint(Canvas& canvas, const Shape& shape, const Colour& colour, float opacity) {
  PaintWith(
      canvas, shape, [&](Point) { return colour; }, [&](Point) { return opacity; });
}

void PaintGradient(Canvas& canvas, const Shape& shape, Point from, const Colour& fromColour,
                   Point to, const Colour& toColour) {
  const Point way = to - from;
  PaintWith(
      canvas, shape,
      [&](Point p) {
        return Mix(fromColour, toColour, std::clamp((p - from).dot(way) / way.dot(way), 0.f, 1.f));
      },
      [](Point) { return 1.f; });
}

void Glow(Canvas& canvas, const Shape& shape, Point centre, float radiusX, float radiusY,
          const Colour& colour, float opacity, float angle) {
  const float turn = angle * static_cast<float>(CV_PI) / 180;
  const float cosine = std::cos(turn), sine = std::sin(turn);
  PaintWith(
      canvas, shape, [&](Point) { return colour; },
      [&](Point p) {
        const Point d = p - centre;
        const float x = (d.x * cosine + d.y * sine) / radiusX;
        const float y = (d.y * cosine - d.x * sine) / radiusY;
        return opacity * std::exp(-2 * (x * x + y * y));
      });
}

void CastShadow(Canvas& canvas, const Shape& shape, const Shape& upon, Point offset, float radius,
                float opacity) {
  Shape moved;
  const cv::Matx23f move(1, 0, offset.x * kDetail, 0, 1, offset.y * kDetail);
  cv::warpAffine(shape, moved, move, shape.size());
  Paint(canvas, Soft(moved, radius) & upon, Rgb(0x1A1020), opacity);
}

void Grain(Canvas& canvas, const Shape& shape, float strength, float sizeX, float sizeY,
           cv::RNG& random) {
  cv::Mat1f noise(std::max(2, static_cast<int>(kHeight / sizeY)),
                  std::max(2, static_cast<int>(kWidth / sizeX)));
  random.fill(noise, cv::RNG::NORMAL, 0, strength);
  cv::resize(noise, noise, canvas.size(), 0, 0, cv::INTER_CUBIC);
  const cv::Rect area = cv::boundingRect(shape);
  for (int y = area.y; y < area.br().y; ++y) {
    for (int x = area.x; x < area.br().x; ++x) {
      canvas(y, x) += canvas(y, x) * (noise(y, x) * static_cast<float>(shape(y, x)) / 255);
    }
  }
}

float Uniform(cv::RNG& random, float from, float to) { return random.uniform(from, to); }

// ---- Canvases ----

Canvas NewCanvas(const Colour& ground) {
  return Canvas(kHeight * kDetail, kWidth * kDetail, ground);
}

cv::Mat3f Reduced(const Canvas& canvas) {
  cv::Mat3f reduced;
  cv::resize(canvas, reduced, {kWidth, kHeight}, 0, 0, cv::INTER_AREA);
  return reduced;
}

cv::Mat Finished(const Canvas& canvas) {
  cv::Mat picture;
  Reduced(canvas).convertTo(picture, CV_8UC3, 255);
  return picture;
}

}  // namespace kolm::painting
