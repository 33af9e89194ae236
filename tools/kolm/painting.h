// Painting as a painter would: from the back to the front, each thing a shape that is filled and
// then shaded by soft lights and shadows inside its outline. Coordinates are pixels of the finished
// picture; it is painted kDetail times larger and reduced at the end.
#pragma once

#include <initializer_list>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace kolm::painting {

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr int kDetail = 2;

using Canvas = cv::Mat3f;  // BGR, 0 to 1
using Shape = cv::Mat1b;   // how much of each canvas pixel the shape covers
using Colour = cv::Vec3f;
using Point = cv::Point2f;
using Points = std::vector<Point>;

Colour Rgb(int rgb);
Colour Mix(const Colour& a, const Colour& b, float share);

// ---- Shapes ----

Shape NoShape();

// A smooth line through the points.
Points Curve(const Points& points, bool closed);

// Points from x, y, x, y, ...
Points Path(std::initializer_list<float> coordinates);

Shape Polygons(const std::vector<Points>& outlines);
Shape Polygon(const Points& outline);
Shape Rectangle(float left, float top, float right, float bottom);
Shape Blob(const Points& points);
Points EllipseOutline(Point centre, float radiusX, float radiusY, float angle);
Shape Ellipse(Point centre, float radiusX, float radiusY, float angle = 0);

// A brush stroke along a curve, thin at both ends if it tapers.
Points StrokeOutline(const Points& points, float thickness, bool tapers);
Shape Stroke(const Points& points, float thickness, bool tapers = false);

Shape operator&(const Shape& a, const Shape& b);
Shape Soft(const Shape& shape, float radius);

// ---- Paint ----

// Lays colourAt(point) over the shape, opaque as far as opacityAt(point) says.
template <typename ColourAt, typename OpacityAt>
void PaintWith(Canvas& canvas, const Shape& shape, ColourAt colourAt, OpacityAt opacityAt) {
  const cv::Rect area = cv::boundingRect(shape);
  for (int y = area.y; y < area.br().y; ++y) {
    for (int x = area.x; x < area.br().x; ++x) {
      if (shape(y, x) == 0) continue;
      const Point point(static_cast<float>(x) / kDetail, static_cast<float>(y) / kDetail);
      const float opacity = static_cast<float>(shape(y, x)) / 255 * opacityAt(point);
      if (opacity > 0) canvas(y, x) = Mix(canvas(y, x), colourAt(point), opacity);
    }
  }
}

void Paint(Canvas& canvas, const Shape& shape, const Colour& colour, float opacity = 1);

// From one colour at one point to another at another, and beyond them the same.
void PaintGradient(Canvas& canvas, const Shape& shape, Point from, const Colour& fromColour,
                   Point to, const Colour& toColour);

// A soft round light or shadow, seen only inside the shape.
void Glow(Canvas& canvas, const Shape& shape, Point centre, float radiusX, float radiusY,
          const Colour& colour, float opacity, float angle = 0);

// Blurred shadow of one shape upon another.
void CastShadow(Canvas& canvas, const Shape& shape, const Shape& upon, Point offset, float radius,
                float opacity);

// Fine irregular light and dark, as of plaster, wool or fur. Grains are size pixels large.
void Grain(Canvas& canvas, const Shape& shape, float strength, float sizeX, float sizeY,
           cv::RNG& random);

float Uniform(cv::RNG& random, float from, float to);

// ---- Canvases ----

Canvas NewCanvas(const Colour& ground);

// At the finished picture's size.
cv::Mat3f Reduced(const Canvas& canvas);

// The finished picture, 8-bit BGR.
cv::Mat Finished(const Canvas& canvas);

}  // namespace kolm::painting
