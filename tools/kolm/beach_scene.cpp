// Draws the beach: sky, sea, an island, a boat, sand and a palm tree.
#include "tools/kolm/beach_scene.h"

#include <cmath>
#include <vector>

#include "tools/kolm/painting.h"

namespace kolm {
namespace {

using namespace painting;

constexpr float kHorizon = 246;
constexpr float kSunX = 262;

void DrawSky(Canvas& canvas, cv::RNG& random) {
  const Shape sky = Rectangle(0, 0, kWidth, kHorizon);
  PaintGradient(canvas, sky, {0, 0}, Rgb(0x35528F), {0, kHorizon}, Rgb(0xF6B27A));
  Glow(canvas, sky, {kSunX, kHorizon}, 420, 120, Rgb(0xFF9A5A), 0.75f);
  Glow(canvas, sky, {kSunX, 206}, 120, 90, Rgb(0xFFE3A0), 0.85f);
  Paint(canvas, Soft(Ellipse({kSunX, 206}, 21, 21), 1.2f), Rgb(0xFFFBE2));
  // Banks of cloud, lit from below.
  struct Bank {
    Point centre;
    float length;
  };
  for (const Bank& bank : {Bank{{96, 62}, 110}, Bank{{560, 84}, 150}, Bank{{300, 34}, 120},
                           Bank{{40, 142}, 70}, Bank{{452, 150}, 120}, Bank{{620, 190}, 80}}) {
    for (int puff = 0; puff < 26; ++puff) {
      const float across = Uniform(random, -1, 1);
      const float size = (1 - across * across) * bank.length * 0.09f + 3;
      const Point centre =
          bank.centre + Point(across * bank.length, Uniform(random, -0.6f, 0.4f) * size);
      Paint(canvas, Soft(Ellipse(centre, size * 2.6f, size * 0.8f), 3) & sky,
            Mix(Rgb(0xFFC9A0), Rgb(0x8C7BA8), Uniform(random, 0.1f, 0.9f)), 0.34f);
      Paint(canvas,
            Soft(Ellipse(centre + Point(0, size * 0.7f), size * 2, size * 0.28f), 1.6f) & sky,
            Rgb(0xFFDDA6), 0.30f);
    }
  }
  for (const Point& bird : {Point(258, 96), Point(282, 84), Point(238, 112), Point(516, 46)}) {
    for (const float side : {-1.f, 1.f}) {
      const Points wing = {bird, bird + Point(side * 4, -3.4f), bird + Point(side * 9, -1)};
      Paint(canvas, Stroke(wing, 1.8f, true), Rgb(0x2A2440), 0.85f);
    }
  }
}

void DrawIsland(Canvas& canvas, cv::RNG& random) {
  const Shape sky = Rectangle(0, 0, kWidth, kHorizon);
  const Shape far =
      Blob(Path({430, 250, 470, 226, 520, 212, 556, 218, 600, 200, 660, 206, 680, 260, 520, 262})) &
      sky;
  PaintGradient(canvas, far, {0, 200}, Rgb(0x6E5F8E), {0, kHorizon}, Rgb(0xB98A8E));
  const Shape near =
      Blob(Path({-20, 214, 22, 208, 58, 224, 92, 238, 118, 250, 60, 262, -20, 262})) & sky;
  PaintGradient(canvas, near, {0, 206}, Rgb(0x3A3558), {90, kHorizon}, Rgb(0x6A4A5C));
  Grain(canvas, near, 0.10f, 3, 2, random);
}

void DrawSea(Canvas& canvas, cv::RNG& random) {
  const float shore = 372;
  const Shape sea = Rectangle(0, kHorizon, kWidth, shore + 40);
  PaintGradient(canvas, sea, {0, kHorizon}, Rgb(0xD79A7E), {0, shore}, Rgb(0x1E6C86));
  Glow(canvas, sea, {600, 320}, 260, 90, Rgb(0x12496E), 0.55f);
  // Waves: flat strokes, longer and darker towards the beach.
  for (int wave = 0; wave < 420; ++wave) {
    const float depth = Uniform(random, 0, 1);
    const float y = kHorizon + 3 + depth * depth * (shore - kHorizon);
    const float length = 5 + depth * depth * 46;
    const Point middle(Uniform(random, -10, kWidth + 10), y);
    const Points line = {middle - Point(length, 0), middle - Point(0, 0.6f + depth * 2),
                         middle + Point(length, 0)};
    const Colour colour = wave % 2 == 0 ? Rgb(0x0F4A66) : Rgb(0xF2C4A0);
    Paint(canvas, Stroke(line, 0.8f + depth * 2.4f, true) & sea, colour, 0.30f);
  }
  // The sun's path.
  for (int glint = 0; glint < 240; ++glint) {
    const float depth = Uniform(random, 0, 1);
    const float y = kHorizon + 1 + depth * (shore - kHorizon);
    const float spread = 9 + depth * 44;
    const float share = Uniform(random, -1, 1);
    const Point middle(kSunX + share * std::abs(share) * spread, y);
    const Point half(2 + depth * Uniform(random, 3, 12), 0);
    Paint(canvas, Stroke({middle - half, middle, middle + half}, 0.9f + depth * 1.8f, true) & sea,
          Rgb(0xFFF0BE), 0.75f);
  }
  Paint(canvas, Rectangle(0, kHorizon - 0.6f, kWidth, kHorizon + 0.8f), Rgb(0xFFE6C4), 0.45f);
}

void DrawBoat(Canvas& canvas) {
  const Shape hull = Blob(Path({16, 268, 34, 271, 58, 270, 76, 265, 68, 277, 26, 278}));
  const Shape mainSail = Polygon(Curve(Path({46, 196, 48, 232, 48, 264, 74, 262, 64, 230}), true));
  const Shape foreSail = Polygon(Curve(Path({43, 204, 42, 240, 42, 264, 20, 263, 30, 234}), true));
  const Shape reflection = Soft(Ellipse({46, 290}, 24, 9), 3);
  Paint(canvas, reflection, Rgb(0x2A2A48), 0.45f);
  Paint(canvas, Stroke(Path({45, 192, 45, 268}), 1.8f), Rgb(0x3A2418));
  PaintGradient(canvas, mainSail, {48, 0}, Rgb(0xD8B6A4), {74, 0}, Rgb(0xFFF3DC));
  PaintGradient(canvas, foreSail, {20, 0}, Rgb(0xB9949C), {43, 0}, Rgb(0xE8CFC0));
  PaintGradient(canvas, hull, {0, 264}, Rgb(0xB8362E), {0, 279}, Rgb(0x40121C));
}

void DrawSand(Canvas& canvas, cv::RNG& random) {
  const Shape wet =
      Blob(Path({-60, 364, 80, 372, 220, 362, 360, 374, 500, 364, 700, 354, 760, 540, -100, 540}));
  const Shape dry =
      Blob(Path({-60, 392, 80, 398, 230, 390, 380, 402, 520, 388, 700, 376, 760, 540, -100, 540}));
  PaintGradient(canvas, wet, {0, 360}, Rgb(0xC9936E), {0, 410}, Rgb(0x8A5E48));
  Glow(canvas, wet, {kSunX, 380}, 90, 26, Rgb(0xFFE2B0), 0.70f);
  PaintGradient(canvas, dry, {0, 384}, Rgb(0xF2CB98), {0, 480}, Rgb(0xA8744A));
  Grain(canvas, dry, 0.06f, 1, 1, random);
  Grain(canvas, dry, 0.05f, 22, 5, random);
  const Points edge = Path({-60, 364, 80, 372, 220, 362, 360, 374, 500, 364, 700, 354});
  Paint(canvas, Soft(Stroke(edge, 6), 1), Rgb(0xFFF6E8), 0.85f);
  Points second = edge;
  for (Point& point : second) point += Point(24, -12);
  Paint(canvas, Soft(Stroke(second, 3), 0.8f), Rgb(0xFFEEDC), 0.60f);
}

// A frond from the crown: a bent rib with leaflets hanging from it.
void DrawFrond(Canvas& canvas, Point crown, Point tip, float sag, const Colour& colour) {
  const Point middle = (crown + tip) * 0.5f - Point(0, sag);
  const Points rib = Curve({crown, middle, tip}, false);
  std::vector<Points> leaves = {StrokeOutline({crown, middle, tip}, 2.6f, true)};
  for (size_t i = 2; i + 1 < rib.size(); ++i) {
    const float share = static_cast<float>(i) / static_cast<float>(rib.size());
    const float length = 34 * std::sin(static_cast<float>(CV_PI) * (0.12f + 0.8f * share));
    const Point along = (tip - crown) * (0.10f / 1.2f);
    for (const float side : {0.45f, 1.f}) {
      const Point end = rib[i] + along + Point(0, length * side);
      leaves.push_back(StrokeOutline({rib[i], (rib[i] + end) * 0.5f + along * 0.5f, end}, 3, true));
    }
  }
  Paint(canvas, Polygons(leaves), colour);
}

void DrawPalm(Canvas& canvas, cv::RNG& random) {
  const Point crown(566, 74);
  const Shape trunk = Stroke({{628, 470}, {612, 360}, {590, 220}, crown}, 15);
  PaintGradient(canvas, trunk, {560, 0}, Rgb(0xA8693E), {632, 0}, Rgb(0x2E1620));
  for (int ring = 84; ring < 470; ring += 9) {
    const float y = static_cast<float>(ring);
    Paint(canvas, Soft(Stroke({{540, y - 2}, {590, y + 3}, {650, y - 2}}, 2), 0.5f) & trunk,
          Rgb(0x241018), 0.55f);
  }
  Grain(canvas, trunk, 0.08f, 2, 2, random);
  const Point tips[] = {{450, 118}, {474, 46},  {530, -6},  {612, -10},
                        {664, 60},  {668, 128}, {516, 158}, {620, 150}};
  int frond = 0;
  for (const Point& tip : tips) {
    const Colour colour = Mix(Rgb(0x123526), Rgb(0x4E7A34), static_cast<float>(frond++ % 3) * 0.4f);
    DrawFrond(canvas, crown, tip, 26, colour);
  }
  for (const Point& nut : {Point(560, 82), Point(573, 84), Point(567, 90)}) {
    const Shape shell = Ellipse(nut, 7, 7.6f);
    Paint(canvas, shell, Rgb(0x4A2A18));
    Glow(canvas, shell, nut + Point(-3, -2), 4, 4, Rgb(0xE8A060), 0.7f);
  }
}

}  // namespace

cv::Mat DrawBeachScene() {
  cv::RNG random(7);
  Canvas canvas = NewCanvas(Colour());
  DrawSky(canvas, random);
  DrawIsland(canvas, random);
  DrawSea(canvas, random);
  DrawBoat(canvas);
  DrawSand(canvas, random);
  DrawPalm(canvas, random);
  return Finished(canvas);
}

}  // namespace kolm
