// Draws the sample scene: the room, the woman and the cat, the things on the table.
#include "tools/kolm/sample_scene.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/kolm/painting.h"

namespace kolm {
namespace {

using namespace painting;

// ---- The room ----

void DrawWall(Canvas& canvas, cv::RNG& random) {
  const Shape wall = Rectangle(0, 0, kWidth, kHeight);
  PaintGradient(canvas, wall, {180, 0}, Rgb(0x6F9A94), {640, 420}, Rgb(0x2C4A55));
  // Wallpaper: rows of small leaves.
  std::vector<Points> leaves;
  for (int row = 0; row < 14; ++row) {
    for (int column = 0; column < 19; ++column) {
      const Point centre(static_cast<float>(column * 36 + row % 2 * 18),
                         static_cast<float>(row * 30 + 12));
      for (const float side : {-1.f, 1.f}) {
        leaves.push_back(EllipseOutline(centre + Point(side * 4.5f, -1), 5.2f, 1.9f, -side * 48));
      }
      leaves.push_back(StrokeOutline({centre + Point(0, -3), centre + Point(0.6f, 8)}, 1, false));
    }
  }
  Paint(canvas, Polygons(leaves), Rgb(0xBFD8C4), 0.20f);
  Glow(canvas, wall, {300, 150}, 190, 220, Rgb(0xFFE2B0), 0.30f);
  Grain(canvas, wall, 0.008f, 1.2f, 1.2f, random);
}

void DrawBalloon(Canvas& canvas, Point top, float size, const Colour& colour,
                 const Colour& stripe) {
  const Shape envelope =
      Blob({top + Point(0, -size), top + Point(size * 0.72f, -size * 0.66f),
            top + Point(size * 0.92f, 0), top + Point(size * 0.55f, size * 0.78f),
            top + Point(size * 0.16f, size * 1.25f), top + Point(-size * 0.16f, size * 1.25f),
            top + Point(-size * 0.55f, size * 0.78f), top + Point(-size * 0.92f, 0),
            top + Point(-size * 0.72f, -size * 0.66f)});
  const Point basket = top + Point(0, size * 1.72f);
  for (const float side : {-1.f, 1.f}) {
    const Points rope = {top + Point(side * size * 0.15f, size * 1.2f),
                         basket + Point(side * size * 0.13f, 0)};
    Paint(canvas, Stroke(rope, 0.7f), Rgb(0x4A3826));
  }
  Paint(canvas, envelope, colour);
  for (const float place : {-0.62f, 0.f, 0.62f}) {
    const float half = place == 0 ? 0.17f : 0.12f;
    const Shape gore = Blob({top + Point(place * size * 0.35f, -size),
                             top + Point((place + half) * size * 1.05f, 0),
                             top + Point(place * size * 0.3f, size * 1.25f),
                             top + Point((place - half) * size * 1.05f, 0)});
    Paint(canvas, gore & envelope, stripe);
  }
  Glow(canvas, envelope, top + Point(-size * 0.35f, -size * 0.4f), size * 0.7f, size * 0.8f,
       Rgb(0xFFFFFF), 0.50f);
  Glow(canvas, envelope, top + Point(size * 0.85f, size * 0.5f), size * 0.75f, size * 1.1f,
       Rgb(0x2A1040), 0.60f);
  const Shape box = Rectangle(basket.x - size * 0.17f, basket.y, basket.x + size * 0.17f,
                              basket.y + size * 0.28f);
  Paint(canvas, box, Rgb(0x8A5A2B));
}

void DrawView(Canvas& canvas, const Shape& opening, cv::RNG& random) {
  PaintGradient(canvas, opening, {0, 30}, Rgb(0x2F6FC4), {0, 170}, Rgb(0x9FCBEA));
  Glow(canvas, opening, {150, 232}, 190, 62, Rgb(0xFFC98A), 0.95f);
  Glow(canvas, opening, {196, 214}, 42, 36, Rgb(0xFFF4CE), 0.95f);
  Paint(canvas, Soft(Ellipse({196, 214}, 11, 11), 0.8f) & opening, Rgb(0xFFFBE8));
  for (const Point& cloud : Path({92, 84, 214, 132, 130, 160})) {
    for (int puff = 0; puff < 9; ++puff) {
      const float across = Uniform(random, -30, 30);
      const float size = 9 - std::abs(across) * 0.2f;
      const Shape shape = Ellipse(cloud + Point(across, Uniform(random, -4, 2)), size * 1.7f, size);
      Paint(canvas, Soft(shape, 2.4f) & opening, Mix(Rgb(0xFFFFFF), Rgb(0xFFE6D0), 0.5f), 0.5f);
    }
  }
  const Shape far =
      Blob(Path({20, 262, 70, 232, 112, 250, 160, 226, 214, 248, 262, 230, 300, 330, 20, 330})) &
      opening;
  PaintGradient(canvas, far, {0, 226}, Rgb(0x6E86B8), {0, 285}, Rgb(0xB9A7B5));
  const Shape near =
      Blob(Path({10, 282, 62, 262, 120, 274, 184, 258, 250, 270, 300, 262, 300, 340, 10, 340})) &
      opening;
  PaintGradient(canvas, near, {60, 258}, Rgb(0x9CB357), {120, 310}, Rgb(0x3E6B38));
  Grain(canvas, near, 0.10f, 3, 1.2f, random);
  for (int tree = 0; tree < 15; ++tree) {
    const float x = 46 + static_cast<float>(tree) * 14.5f + Uniform(random, -4, 4);
    const float height = Uniform(random, 8, 17);
    const Shape crown = Ellipse({x, 279 - height * 0.4f}, height * 0.36f, height * 0.62f) & opening;
    Paint(canvas, crown, Rgb(0x2F5632));
    Glow(canvas, crown, {x - 2, 274 - height * 0.4f}, 4, 6, Rgb(0xC9D36A), 0.6f);
  }
  DrawBalloon(canvas, {108, 104}, 25, Rgb(0xE5262B), Rgb(0xFFD21F));
  DrawBalloon(canvas, {222, 82}, 15, Rgb(0x1560D8), Rgb(0xF4F4FF));
  DrawBalloon(canvas, {66, 180}, 9, Rgb(0xF08A12), Rgb(0x7A1FA8));
}

// A bar of wood with a lit and a shaded edge.
void DrawBar(Canvas& canvas, float left, float top, float right, float bottom) {
  const bool upright = bottom - top > right - left;
  const Colour lit = Rgb(0xF3E8D6), dark = Rgb(0xA18C74);
  const Shape bar = Rectangle(left, top, right, bottom);
  if (upright) {
    PaintGradient(canvas, bar, {left, 0}, lit, {right, 0}, dark);
  } else {
    PaintGradient(canvas, bar, {0, top}, lit, {0, bottom}, dark);
  }
}

void DrawWindow(Canvas& canvas, cv::RNG& random) {
  const Shape wall = Rectangle(0, 0, kWidth, kHeight);
  const Shape frame = Rectangle(32, 26, 268, 304);
  CastShadow(canvas, frame, wall, {5, 6}, 7, 0.55f);
  Paint(canvas, frame, Rgb(0xD9C8AE));
  const Shape opening = Rectangle(42, 36, 258, 296);
  DrawView(canvas, opening, random);
  DrawBar(canvas, 32, 26, 268, 37);
  DrawBar(canvas, 32, 26, 43, 304);
  DrawBar(canvas, 257, 26, 268, 304);
  DrawBar(canvas, 146, 37, 154, 296);
  DrawBar(canvas, 43, 190, 257, 196);
  Paint(canvas, Rectangle(43, 37, 257, 39.5f), Rgb(0x33261C), 0.35f);
  Paint(canvas, Rectangle(43, 37, 45, 296), Rgb(0x33261C), 0.30f);
  const Shape sill = Rectangle(20, 296, 282, 312);
  CastShadow(canvas, sill, wall, {4, 8}, 6, 0.6f);
  PaintGradient(canvas, sill, {0, 296}, Rgb(0xFFF6E4), {0, 312}, Rgb(0xAD977C));
}

void DrawCurtain(Canvas& canvas, cv::RNG& random) {
  const Shape curtain = Blob(
      Path({-20, -30, 76, -30, 70, 60, 58, 160, 40, 236, 34, 262, 44, 330, 52, 430, -20, 430}));
  CastShadow(canvas, curtain, Rectangle(0, 0, kWidth, kHeight), {8, 3}, 8, 0.55f);
  PaintWith(
      canvas, curtain,
      [](Point p) {
        const float gather = 0.62f + 0.38f * std::abs(p.y - 262) / 262;
        const float fold = std::sin(p.x / gather * 0.42f + std::sin(p.y * 0.013f) * 1.1f);
        return Mix(Rgb(0x6E0F1E), Rgb(0xE0413F), 0.5f + 0.5f * fold);
      },
      [](Point) { return 1.f; });
  Grain(canvas, curtain, 0.05f, 0.8f, 3, random);
  const Shape tie = Stroke(Path({-4, 268, 18, 264, 39, 254}), 11) & curtain;
  PaintGradient(canvas, tie, {0, 254}, Rgb(0xFFDE74), {4, 274}, Rgb(0xA8741C));
}

void DrawShelves(Canvas& canvas, cv::RNG& random) {
  const Shape wall = Rectangle(0, 0, kWidth, kHeight);
  const int covers[] = {0xC2272D, 0x1F5FA8, 0xE8A317, 0x2E7D4F, 0x6B2C83,
                        0xE6E0CF, 0xD9572B, 0x17808A, 0x30343F, 0xB8336A};
  int cover = 0;
  const float boards[] = {104, 212, 320};
  for (const float board : boards) {
    const Shape back = Rectangle(524, board - 92, 640, board);
    PaintGradient(canvas, back, {524, 0}, Rgb(0x241A18), {640, 0}, Rgb(0x3B2A22));
    for (float x = 529; x < 628;) {
      const float thickness = Uniform(random, 8, 17);
      const float top = board - Uniform(random, 58, 86);
      const Colour colour = Rgb(covers[cover++ % 10]);
      const Shape book = Rectangle(x, top, x + thickness, board);
      PaintGradient(canvas, book, {x + thickness * 0.25f, 0}, Mix(colour, Rgb(0xFFFFFF), 0.16f),
                    {x + thickness, 0}, colour * 0.45f);
      const Colour gilt = Rgb(cover % 6 == 0 ? 0x5A4020 : 0xF2DC9A);
      for (const float line : {8.f, 11.f, board - top - 12}) {
        Paint(canvas, Rectangle(x + 1, top + line, x + thickness - 1, top + line + 1.2f), gilt,
              0.8f);
      }
      for (int row = 0; row < 7; ++row) {
        const float letter = 18 + static_cast<float>(row) * 3.6f;
        const float half = Uniform(random, 1.2f, thickness * 0.26f);
        const float middle = x + thickness / 2;
        Paint(canvas, Rectangle(middle - half, top + letter, middle + half, top + letter + 1.7f),
              gilt, 0.85f);
      }
      x += thickness + 0.6f;
    }
    Paint(canvas, Soft(Rectangle(524, board - 92, 640, board - 84), 4) & back, Rgb(0x0A0606), 0.7f);
    const Shape plank = Rectangle(518, board, 640, board + 9);
    CastShadow(canvas, plank, wall, {-3, 6}, 5, 0.5f);
    PaintGradient(canvas, plank, {0, board}, Rgb(0xB98552), {0, board + 9}, Rgb(0x5B3820));
    Grain(canvas, plank, 0.08f, 9, 0.8f, random);
  }
}

void DrawTable(Canvas& canvas, cv::RNG& random) {
  const float horizon = 318, edge = 398;
  const Shape cloth = Rectangle(0, edge, kWidth, kHeight);
  PaintWith(
      canvas, cloth,
      [&](Point p) {
        const float depth = 1 / (p.y - horizon);
        const int across = static_cast<int>(std::floor((p.x - 300) * depth * 4.2f + 200.5f));
        const int along = static_cast<int>(std::floor(depth * 1000));
        const int colours = across % 2 + along % 2;
        return colours == 0 ? Rgb(0xF7F1E6) : colours == 1 ? Rgb(0xD9696B) : Rgb(0xB3161F);
      },
      [](Point) { return 1.f; });
  Grain(canvas, cloth, 0.035f, 0.9f, 0.9f, random);
  Glow(canvas, cloth, {210, 405}, 260, 50, Rgb(0xFFF0C8), 0.30f);
  Glow(canvas, cloth, {640, 490}, 330, 110, Rgb(0x1C0A1A), 0.65f);
  Glow(canvas, cloth, {0, 500}, 200, 60, Rgb(0x1C0A1A), 0.40f);
  Paint(canvas, Rectangle(0, edge, kWidth, edge + 1.5f), Rgb(0xFFF6E6), 0.7f);
}

// ---- The woman ----

void DrawBackHair(Canvas& canvas, cv::RNG& random) {
  const Shape hair =
      Blob(Path({402, 88,  446, 98,  472, 138, 478, 190, 486, 240, 482, 292, 462, 318, 428,
                 322, 376, 322, 342, 316, 322, 290, 320, 238, 330, 188, 334, 138, 358, 100}));
  CastShadow(canvas, hair, Rectangle(300, 0, 524, kHeight), {12, 8}, 12, 0.5f);
  PaintGradient(canvas, hair, {325, 150}, Rgb(0x7A3A1C), {480, 290}, Rgb(0x1F0C08));
  for (int strand = 0; strand < 90; ++strand) {
    const float x = Uniform(random, 322, 482);
    const float bend = (x - 402) * 0.12f;
    const Points line =
        Path({402 + (x - 402) * 0.8f, 120, x + bend, 190, x + bend * 0.4f + Uniform(random, -5, 5),
              250, x + bend + Uniform(random, -7, 7), 318});
    const bool lit = Uniform(random, 0, 1) < (x < 380 ? 0.7f : 0.35f);
    Paint(canvas, Stroke(line, Uniform(random, 1, 2.6f), true) & hair,
          lit ? Rgb(0xC4743A) : Rgb(0x160705), 0.45f);
  }
}

void DrawBody(Canvas& canvas, cv::RNG& random) {
  const Shape neck =
      Blob(Path({374, 236, 426, 236, 428, 286, 446, 318, 400, 346, 354, 318, 372, 286}));
  PaintGradient(canvas, neck, {368, 0}, Rgb(0xE8B08E), {438, 0}, Rgb(0xA9674A));
  Paint(canvas, Soft(Ellipse({404, 262}, 34, 24), 6) & neck, Rgb(0x6E2F22), 0.55f);

  const Shape jumper =
      Blob(Path({366, 304, 382, 322, 401, 328, 420, 322, 436, 304, 474, 318, 518, 338, 544,
                 380, 556, 430, 560, 520, 240, 520, 246, 430, 258, 380, 286, 338, 328, 318}));
  CastShadow(canvas, jumper, Rectangle(250, 200, kWidth, kHeight), {10, 6}, 10, 0.45f);
  PaintGradient(canvas, jumper, {256, 340}, Rgb(0x2B9C9C), {548, 420}, Rgb(0x0C3F57));
  for (int stripe = 0; stripe < 3; ++stripe) {
    const float y = 360 + static_cast<float>(stripe) * 22;
    const Points band = Path({230, y + 26, 310, y - 2, 400, y + 8, 490, y - 2, 570, y + 26});
    Paint(canvas, Stroke(band, 8) & jumper, stripe == 1 ? Rgb(0xF2B632) : Rgb(0xF4EBDD), 0.95f);
  }
  // Knitting: rows of small slanted stitches.
  std::vector<Points> stitches;
  for (int row = 0; row < 23; ++row) {
    for (int column = 0; column < 66; ++column) {
      const Point stitch(240 + static_cast<float>(column) * 5,
                         306 + static_cast<float>(row) * 4.6f);
      const Point slant(column % 2 == 0 ? 1.4f : -1.4f, 1.8f);
      stitches.push_back(StrokeOutline({stitch - slant, stitch + slant}, 1.1f, false));
    }
  }
  Paint(canvas, Polygons(stitches) & jumper, Rgb(0x041820), 0.22f);
  Glow(canvas, jumper, {286, 352}, 60, 46, Rgb(0xE9FFF2), 0.36f, -30);
  Glow(canvas, jumper, {540, 400}, 80, 110, Rgb(0x030A18), 0.65f);
  Glow(canvas, jumper, {402, 350}, 46, 26, Rgb(0x04141C), 0.42f);
  Glow(canvas, jumper, {330, 420}, 16, 60, Rgb(0x04141C), 0.40f, 12);
  Glow(canvas, jumper, {478, 420}, 16, 60, Rgb(0x04141C), 0.45f, -12);
  const Points collar = Path({364, 303, 380, 324, 401, 331, 422, 324, 438, 303});
  Paint(canvas, Stroke(collar, 9), Rgb(0x176C78));
  Paint(canvas, Stroke(Path({363, 301, 380, 321, 401, 328, 422, 321, 439, 301}), 2.2f),
        Rgb(0x7FD0C8), 0.8f);
  Grain(canvas, jumper, 0.03f, 1, 1, random);
}

void DrawEye(Canvas& canvas, const Shape& face, Point centre, float outer) {
  const auto at = [&](float x, float y) { return centre + Point(x * outer, y); };
  Glow(canvas, face, at(0, -4), 17, 11, Rgb(0x8A4632), 0.38f);
  const Shape eye = Blob({at(-11, 1.6f), at(-5, -3.8f), at(2, -5), at(8, -2.6f), at(11.5f, 0.4f),
                          at(6, 3.8f), at(0, 4.8f), at(-6, 3.8f)});
  PaintGradient(canvas, eye, centre - Point(0, 5), Rgb(0xC9BDB8), centre + Point(0, 3),
                Rgb(0xFBF6F1));
  const Point look = centre + Point(-0.6f, -0.4f);
  const Shape iris = Ellipse(look, 5.2f, 5.2f) & eye;
  PaintGradient(canvas, iris, look - Point(0, 5), Rgb(0x1F3A2A), look + Point(0, 5), Rgb(0x6FA36A));
  Paint(canvas, Ellipse(look, 2.4f, 2.4f) & eye, Rgb(0x0A0808));
  Paint(canvas, Ellipse(look + Point(-1.8f, -1.9f), 1.25f, 1.25f), Rgb(0xFFFFFF));
  Paint(canvas,
        Stroke({at(-11.5f, 2), at(-5, -4), at(2, -5.4f), at(8.5f, -3), at(13, -0.8f)}, 2.6f, true),
        Rgb(0x24100C));
  Paint(canvas, Stroke({at(-9, 3), at(0, 5.2f), at(9, 2.4f)}, 1.1f, true), Rgb(0x7A4030), 0.7f);
  Paint(canvas, Stroke({at(-9, -5.6f), at(1, -9.4f), at(11, -5.4f)}, 1.2f, true), Rgb(0x7A4030),
        0.55f);
  Paint(canvas,
        Soft(Stroke({at(-12, -13), at(-3, -16), at(6, -16.4f), at(15, -12)}, 4.4f, true), 0.5f),
        Rgb(0x42200F), 0.88f);
}

void DrawFace(Canvas& canvas) {
  const Shape face = Blob(Path({350, 176, 351, 206, 360, 236, 379, 260, 400, 269, 421, 260,
                                440, 236, 449, 206, 450, 176, 443, 138, 400, 114, 357, 138}));
  PaintGradient(canvas, face, {352, 0}, Rgb(0xF8CFAF), {452, 0}, Rgb(0xD6936E));
  Glow(canvas, face, {452, 214}, 32, 84, Rgb(0x7A3526), 0.62f);
  Glow(canvas, face, {374, 158}, 34, 26, Rgb(0xFFE9D2), 0.60f);
  Glow(canvas, face, {400, 272}, 42, 18, Rgb(0x8A4430), 0.42f);
  Glow(canvas, face, {370, 222}, 17, 13, Rgb(0xE8705E), 0.38f);
  Glow(canvas, face, {430, 223}, 17, 13, Rgb(0xC4503F), 0.38f);
  Glow(canvas, face, {368, 212}, 12, 8, Rgb(0xFFF0E0), 0.42f, -25);
  Glow(canvas, face, {398, 257}, 11, 7, Rgb(0xFFE6D2), 0.40f);

  DrawEye(canvas, face, {378, 194}, -1);
  DrawEye(canvas, face, {423, 194}, 1);

  // Nose: a lit bridge, a shaded side, the tip and the nostrils.
  Glow(canvas, face, {408, 206}, 6, 24, Rgb(0x8E4A34), 0.50f, -6);
  Glow(canvas, face, {399, 202}, 4, 26, Rgb(0xFFF1E2), 0.55f);
  Glow(canvas, face, {401, 226}, 13, 6, Rgb(0x8E4634), 0.50f);
  Glow(canvas, face, {399, 220}, 5, 4.5f, Rgb(0xFFF6EC), 0.70f);
  Paint(canvas, Soft(Stroke(Path({389, 222, 388, 226, 392, 229}), 1.8f, true), 0.4f), Rgb(0x8A4632),
        0.6f);
  Paint(canvas, Soft(Stroke(Path({412, 221, 413.5f, 226, 409, 229}), 2, true), 0.4f), Rgb(0x7A3A28),
        0.7f);
  for (const float side : {-1.f, 1.f}) {
    Paint(canvas, Soft(Ellipse({400.6f + side * 5.4f, 228}, 2.7f, 1.5f, side * -12), 0.4f),
          Rgb(0x54201A), 0.85f);
  }

  // Mouth, smiling a little.
  Glow(canvas, face, {400, 252}, 17, 4, Rgb(0x8A4030), 0.50f);
  const Shape upperLip =
      Blob(Path({380, 241,    391, 237.6f, 397, 236,    400.5f, 237.4f, 404, 236,
                 410, 237.6f, 421, 241,    410, 242.4f, 400.5f, 243.4f, 391, 242.4f}));
  const Shape lowerLip = Blob(Path({380.5f, 241, 391, 242.2f, 400.5f, 243.2f, 410, 242.2f, 420.5f,
                                    241, 413, 247.6f, 400.5f, 250.6f, 388, 247.6f}));
  Paint(canvas, upperLip, Rgb(0xA83A40));
  PaintGradient(canvas, lowerLip, {388, 242}, Rgb(0xD9656A), {416, 249}, Rgb(0xA53C44));
  Glow(canvas, lowerLip, {396, 246}, 7, 2, Rgb(0xFFE2DE), 0.75f);
  Paint(canvas,
        Stroke(Path({378, 240, 390, 242.3f, 400.5f, 243.4f, 411, 242.3f, 423, 240}), 1.5f, true),
        Rgb(0x541519), 0.9f);
  for (const float side : {-1.f, 1.f}) {
    Glow(canvas, face, {400.5f + side * 23, 239.5f}, 4, 4, Rgb(0x8A4030), 0.55f);
  }
}

void DrawFrontHair(Canvas& canvas, cv::RNG& random) {
  // Parted on her right: a narrow and a wide lock frame the face.
  const Shape narrow =
      Blob(Path({386, 104, 366, 128, 354, 160, 348, 200, 350, 240, 350, 276, 340,
                 312, 333, 318, 324, 284, 327, 240, 332, 180, 342, 130, 362, 102}));
  const Shape wide =
      Blob(Path({380, 106, 402, 134, 434, 152, 447, 178, 452, 214, 451, 250, 455, 286,
                 464, 318, 474, 306, 480, 270, 478, 210, 470, 144, 448, 102, 404, 90}));
  const Shape face = Ellipse({400, 192}, 52, 80);
  for (const Shape& lock : {narrow, wide}) {
    CastShadow(canvas, lock, face, {2, 5}, 4, 0.45f);
    PaintGradient(canvas, lock, {335, 110}, Rgb(0x9A5226), {478, 240}, Rgb(0x38160C));
  }
  for (int strand = 0; strand < 46; ++strand) {
    const float share = static_cast<float>(strand) / 45;
    const float left = Uniform(random, -3, 3), right = Uniform(random, -3, 3);
    const Points leftLine =
        Path({384 - share * 18, 106, 365 - share * 20, 134 + left, 350 - share * 16, 182,
              350 - share * 18, 240 + left, 346 - share * 18, 312});
    const Points rightLine = Path({384 + share * 22, 106 - share * 14, 406 + share * 36,
                                   134 - share * 32 + right, 438 + share * 30, 160 - share * 28,
                                   450 + share * 24, 206 + right, 454 + share * 20, 314});
    const bool lit = strand % 3 != 0;
    Paint(canvas, Stroke(leftLine, 1.5f, true) & narrow, lit ? Rgb(0xE09A56) : Rgb(0x3A160A), 0.5f);
    Paint(canvas, Stroke(rightLine, 1.7f, true) & wide, lit ? Rgb(0xB9682F) : Rgb(0x220B06), 0.5f);
  }
  Glow(canvas, wide, {410, 116}, 30, 9, Rgb(0xFFD9A0), 0.55f, 28);
  Glow(canvas, narrow, {346, 150}, 8, 34, Rgb(0xFFE0B0), 0.45f, 12);
  Glow(canvas, wide, {476, 230}, 18, 70, Rgb(0x0C0302), 0.6f);
  const Shape earring = Ellipse({353, 252}, 3.4f, 3.4f);
  Paint(canvas, earring, Rgb(0xE2A91E));
  Glow(canvas, earring, {352, 251}, 2, 2, Rgb(0xFFFFFF), 0.9f);
}

// ---- The cat ----

void DrawCatEye(Canvas& canvas, Point centre) {
  const Shape eye = Ellipse(centre, 6.4f, 5.8f);
  Paint(canvas, Ellipse(centre, 7.4f, 6.9f), Rgb(0x33180A));
  PaintGradient(canvas, eye, centre - Point(0, 6), Rgb(0x5C8A12), centre + Point(0, 5),
                Rgb(0xD8F04A));
  Paint(canvas, Ellipse(centre, 2, 5.2f), Rgb(0x080808));
  Paint(canvas, Ellipse(centre + Point(-2, -2.2f), 1.4f, 1.4f), Rgb(0xFFFFFF));
}

void DrawCat(Canvas& canvas, cv::RNG& random) {
  const Colour ginger = Rgb(0xE8913A), deep = Rgb(0x9A4612), cream = Rgb(0xFFEBCF);
  const Shape all = Rectangle(0, 0, kWidth, kHeight);
  const Shape tail = Stroke(Path({208, 414, 246, 424, 272, 412, 272, 386, 256, 374}), 17);
  const Shape tip = Ellipse({255, 373.5f}, 8.6f, 8.6f);
  const Shape body = Blob(Path({120, 310, 186, 310, 208, 346, 222, 392, 214, 426,
                                176, 434, 130, 434, 94,  426, 86,  392, 98,  346}));
  const Shape head = Blob(Path({152, 234, 184, 242, 201, 266, 202, 288, 184, 310,
                                152, 318, 121, 310, 103, 288, 104, 266, 121, 242}));
  Paint(canvas, Soft(Ellipse({168, 432}, 100, 10), 6) & Rectangle(0, 398, kWidth, kHeight),
        Rgb(0x1A0A10), 0.75f);

  for (const Shape& part : {tail, tip}) {
    PaintGradient(canvas, part, {240, 380}, ginger, {270, 430}, deep);
  }
  const Points rings[] = {Path({224, 408, 222, 430}), Path({242, 412, 242, 434}),
                          Path({258, 408, 266, 430}), Path({260, 396, 284, 402}),
                          Path({258, 386, 282, 380})};
  for (const Points& ring : rings) Paint(canvas, Stroke(ring, 6) & tail, Rgb(0x6E2C0A), 0.8f);

  PaintGradient(canvas, body, {98, 340}, Rgb(0xF2A552), {222, 410}, Rgb(0xA8541A));
  for (const float side : {-1.f, 1.f}) {
    for (int i = 0; i < 6; ++i) {
      const float y = 334 + static_cast<float>(i) * 15;
      const Points stripe = {
          {154 + side * 72, y + 12}, {154 + side * 50, y + 3}, {154 + side * 28, y + 9}};
      Paint(canvas, Soft(Stroke(stripe, 7.5f, true), 0.6f) & body, Rgb(0x7A3410), 0.85f);
    }
  }
  const Shape chest =
      Blob(Path({136, 308, 172, 308, 178, 344, 168, 384, 154, 396, 140, 384, 130, 344}));
  Paint(canvas, Soft(chest, 3.5f) & body, cream, 0.92f);
  Glow(canvas, body, {154, 322}, 44, 14, Rgb(0x5A2408), 0.60f);
  Glow(canvas, body, {226, 380}, 40, 70, Rgb(0x2E0E04), 0.60f);
  Glow(canvas, body, {100, 352}, 22, 40, Rgb(0xFFE3A8), 0.42f, 15);
  // Front legs and paws.
  for (const float side : {-1.f, 1.f}) {
    const float x = 154 + side * 17;
    const Shape leg = Blob(Path({x - 12, 366, x + 12, 366, x + 12, 400, x + 15, 424, x + 9, 436,
                                 x - 9, 436, x - 15, 424, x - 12, 400}));
    CastShadow(canvas, leg, body, {3, 1}, 3, 0.35f);
    PaintGradient(canvas, leg, {x - 14, 380}, Rgb(0xF6B468), {x + 16, 400}, Rgb(0xC46E28));
    Glow(canvas, leg, {x, 364}, 18, 14, ginger, 0.9f);
    Glow(canvas, leg, {x, 432}, 17, 13, cream, 0.95f);
    for (const float y : {386.f, 398.f, 410.f}) {
      Paint(canvas, Soft(Stroke(Path({x - 13, y, x, y + 3, x + 13, y}), 4, true), 0.5f) & leg,
            Rgb(0x8A3E12), 0.75f);
    }
    for (const float toe : {-5.f, 0.f, 5.f}) {
      Paint(canvas, Stroke(Path({x + toe, 428, x + toe, 435}), 1.1f), Rgb(0x8A5A38), 0.7f);
    }
  }

  for (const float side : {-1.f, 1.f}) {
    const auto at = [&](float x, float y) { return Point(153 + side * x, y); };
    const Shape ear = Blob({at(18, 252), at(33, 234), at(44, 218), at(48, 217), at(51, 242),
                            at(50, 268), at(38, 270)});
    CastShadow(canvas, ear, all, {2, 2}, 3, 0.3f);
    PaintGradient(canvas, ear, {110, 220}, ginger, {205, 260}, deep);
    const Shape inner = Blob({at(29, 250), at(37, 238), at(45, 225), at(47, 244), at(45, 260)});
    PaintGradient(canvas, inner, {0, 222}, Rgb(0xE9A08E), {0, 262}, Rgb(0x9C4A38));
  }
  CastShadow(canvas, head, body, {2, 8}, 6, 0.5f);
  PaintGradient(canvas, head, {106, 250}, Rgb(0xF8B05C), {204, 300}, Rgb(0xBC6420));
  Paint(canvas, Soft(Ellipse({153, 301}, 24, 15), 3.2f) & head, cream, 0.95f);
  for (const float side : {-1.f, 1.f}) {
    const auto at = [&](float x, float y) { return Point(153 + side * x, y); };
    const Points marks[] = {{at(6, 236), at(6, 248), at(9, 258)},
                            {at(15, 239), at(16, 249), at(20, 256)},
                            {at(50, 270), at(40, 274), at(31, 281)},
                            {at(50, 282), at(42, 286), at(32, 290)},
                            {at(48, 294), at(40, 297), at(32, 299)}};
    for (const Points& mark : marks) {
      Paint(canvas, Soft(Stroke(mark, 5, true), 0.5f) & head, Rgb(0x7A3410), 0.85f);
    }
  }
  Paint(canvas, Soft(Stroke(Path({153, 234, 153, 252}), 5, true), 0.5f) & head, Rgb(0x7A3410),
        0.85f);
  Glow(canvas, head, {206, 286}, 26, 40, Rgb(0x3A1206), 0.55f);
  Glow(canvas, head, {126, 254}, 22, 18, Rgb(0xFFF0C8), 0.38f);
  DrawCatEye(canvas, {133, 274});
  DrawCatEye(canvas, {174, 274});
  Glow(canvas, head, {153, 282}, 8, 16, Rgb(0xFFDDA8), 0.5f);
  Paint(canvas, Blob(Path({147, 291, 153, 290, 159, 291, 156, 295.5f, 153, 297, 150, 295.5f})),
        Rgb(0xD0685E));
  Paint(canvas, Stroke(Path({153, 297, 153, 302}), 1.3f), Rgb(0x6A2A1C));
  for (const float side : {-1.f, 1.f}) {
    Paint(canvas, Stroke(Path({153, 302, 153 + side * 5, 306, 153 + side * 12, 303}), 1.6f, true),
          Rgb(0x6A2A1C));
  }
  const Shape fur[] = {body, head, tail};
  for (const Shape& part : fur) Grain(canvas, part, 0.09f, 0.9f, 2.4f, random);
  for (const float side : {-1.f, 1.f}) {
    for (const float rise : {-9.f, -1.f, 7.f}) {
      const Points whisker = Path({153 + side * 16, 299 + rise * 0.25f, 153 + side * 44,
                                   296 + rise * 0.8f, 153 + side * 72, 299 + rise * 1.6f});
      Paint(canvas, Stroke(whisker, 1.2f, true), Rgb(0xFFFBF0), 0.9f);
    }
  }
}

// ---- On the table ----

void DrawMug(Canvas& canvas) {
  const Shape table = Rectangle(0, 398, kWidth, kHeight);
  const Shape mug =
      Blob(Path({326, 384, 370, 384, 369, 420, 364, 448, 348, 453, 332, 448, 327, 420}));
  CastShadow(canvas, mug, table, {14, 10}, 7, 0.6f);
  const Shape handle = Stroke(Path({366, 396, 386, 396, 390, 416, 380, 430, 364, 432}), 7);
  PaintGradient(canvas, handle, {366, 394}, Rgb(0x4D8DF0), {388, 432}, Rgb(0x0E2F80));
  PaintGradient(canvas, mug, {326, 0}, Rgb(0x3D86F2), {372, 0}, Rgb(0x0B2A78));
  Glow(canvas, mug, {336, 412}, 4, 30, Rgb(0xFFFFFF), 0.75f);
  for (const Point& dot : {Point(346, 402), Point(360, 412), Point(345, 424), Point(358, 436)}) {
    Paint(canvas, Ellipse(dot, 3.6f, 3.8f) & mug, Rgb(0xFFF3D0), 0.92f);
  }
  Paint(canvas, Ellipse({348, 384.5f}, 22.4f, 6.4f), Rgb(0x8DB8FF));
  PaintGradient(canvas, Ellipse({348, 385}, 19.6f, 4.8f), {330, 0}, Rgb(0x241008), {366, 0},
                Rgb(0x6B3A1C));
  for (const float x : {342.f, 353.f}) {
    const Points steam = Path({x, 380, x + 5, 366, x - 3, 352, x + 4, 338});
    Paint(canvas, Soft(Stroke(steam, 5, true), 2), Rgb(0xFFFFFF), 0.42f);
  }
}

void DrawFruit(Canvas& canvas, cv::RNG& random) {
  const Shape table = Rectangle(0, 398, kWidth, kHeight);
  struct Fruit {
    Point centre;
    float radius;
    int lit, dark;
  };
  const Fruit fruits[] = {{{566, 400}, 22, 0xFFB52E, 0xB24A06},
                          {{604, 404}, 24, 0xE8352C, 0x5E0710},
                          {{584, 378}, 20, 0xB9D83A, 0x44680F}};
  const Shape bowl =
      Blob(Path({526, 406, 584, 412, 642, 406, 634, 432, 608, 452, 560, 452, 534, 432}));
  CastShadow(canvas, bowl, table, {-10, 10}, 8, 0.6f);
  for (const Fruit& fruit : fruits) {
    const Shape skin = Ellipse(fruit.centre, fruit.radius, fruit.radius * 0.96f);
    Paint(canvas, skin, Mix(Rgb(fruit.lit), Rgb(fruit.dark), 0.25f));
    Glow(canvas, skin, fruit.centre + Point(11, 13), 22, 22, Rgb(fruit.dark), 0.9f);
    Glow(canvas, skin, fruit.centre + Point(-8, -8), 12, 11, Rgb(fruit.lit), 0.9f);
    Glow(canvas, skin, fruit.centre + Point(-8, -9), 5, 4, Rgb(0xFFFFFF), 0.85f);
    Grain(canvas, skin, 0.04f, 1.3f, 1.3f, random);
  }
  Paint(canvas, Stroke(Path({604, 384, 606, 376, 611, 371}), 2.2f), Rgb(0x3A2412));
  PaintGradient(canvas, bowl, {528, 410}, Rgb(0xFAFBFF), {640, 440}, Rgb(0x5F6F96));
  Paint(canvas, Stroke(Path({527, 413, 584, 420, 641, 413}), 3.4f) & bowl, Rgb(0x1F4FB4), 0.9f);
  Paint(canvas, Stroke(Path({530, 423, 584, 431, 638, 423}), 1.6f) & bowl, Rgb(0x1F4FB4), 0.9f);
  Glow(canvas, bowl, {548, 428}, 10, 16, Rgb(0xFFFFFF), 0.9f, 20);
}

void DrawRoom(Canvas& canvas, cv::RNG& random) {
  DrawWall(canvas, random);
  DrawShelves(canvas, random);
  DrawWindow(canvas, random);
  DrawCurtain(canvas, random);
}

void DrawWoman(Canvas& canvas, cv::RNG& random) {
  DrawBackHair(canvas, random);
  DrawBody(canvas, random);
  DrawFace(canvas);
  DrawFrontHair(canvas, random);
}

void DrawThings(Canvas& canvas, cv::RNG& random) {
  DrawTable(canvas, random);
  DrawFruit(canvas, random);
  DrawMug(canvas);
}

void DrawForeground(Canvas& canvas, cv::RNG& random) {
  DrawWoman(canvas, random);
  DrawThings(canvas, random);
  DrawCat(canvas, random);
}

// What shows through on a black and on a white ground differs by just as much.
template <typename Draw>
SceneLayer LayerOf(Draw draw) {
  cv::Mat3f onGround[2];
  for (const int ground : {0, 1}) {
    cv::RNG random(20);
    Canvas canvas = NewCanvas(Colour::all(static_cast<float>(ground)));
    draw(canvas, random);
    onGround[ground] = Reduced(canvas);
  }
  return {onGround[0], onGround[1] - onGround[0]};
}

// Evening light from the window, and darker corners.
void DrawLight(Canvas& canvas) {
  const Shape all = Rectangle(0, 0, kWidth, kHeight);
  Glow(canvas, all, {190, 200}, 260, 240, Rgb(0xFFD9A0), 0.10f);
  PaintWith(
      canvas, all, [](Point) { return Rgb(0x0A0614); },
      [](Point p) {
        const float x = (p.x - 310) / 480, y = (p.y - 230) / 380;
        return std::min(0.5f, 0.75f * (x * x + y * y) * (x * x + y * y));
      });
}

}  // namespace

cv::Mat DrawSampleScene() {
  cv::RNG random(20);
  Canvas canvas = NewCanvas(Colour());
  DrawRoom(canvas, random);
  DrawForeground(canvas, random);
  DrawLight(canvas);
  return Finished(canvas);
}

SampleLayers DrawSampleLayers() {
  return {LayerOf(DrawRoom), LayerOf(DrawWoman), LayerOf(DrawThings),
          LayerOf([](Canvas& canvas, cv::RNG&) { DrawLight(canvas); })};
}

cv::Mat DrawSampleRoomCover() {
  cv::Mat1f ground;
  cv::extractChannel(LayerOf(DrawForeground).through, ground, 1);
  // The shadows that the foreground casts on the room go with the room.
  constexpr float kThrough = 0.45f;
  cv::Mat cover;
  ground.convertTo(cover, CV_8U, 255 / kThrough);
  return cover;
}

cv::Mat DrawPortraitCover() {
  Shape portrait = Blob(
      Path({320, 70, 392, 100, 414, 180, 396, 260, 372, 300, 400, 330, 500, 372, 548, 440, 560,
            560, 80, 560, 92,  440, 140, 372, 240, 330, 268, 300, 244, 260, 226, 180, 248, 100}));
  cv::Mat cover;
  cv::resize(Soft(portrait, 9), cover, {kWidth, kHeight}, 0, 0, cv::INTER_AREA);
  return ~cover;
}

}  // namespace kolm
