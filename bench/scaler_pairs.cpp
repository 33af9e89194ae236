// The scalers, and the effects built on the nearest-sample one.
#include <libyuv.h>

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "bench/bench_frames.h"
#include "bench/pairs.h"
#include "effects/geometry_effects.h"
#include "imaging/crop_scale_yuv16.h"
#include "imaging/scale_plane.h"
#include "module/kolm.h"

namespace kolm::bench {
namespace {

std::string Name(Size from, Size to) { return bench::Name(from) + "-" + bench::Name(to); }

cv::Mat Packed(const uint8_t* frame, Size size) {
  return cv::Mat(size.height, size.width, CV_8UC2, const_cast<uint8_t*>(frame));
}

// A part of the source scaled to a part of the destination.
struct Piece {
  cv::Rect from, to;
};

// One nearest-sample resize for each piece of the picture, straight to its place.
Work ResizePieces(Size source, Size destination, const std::vector<Piece>& pieces) {
  return [=](const Frames& frames) {
    const cv::Mat from = Packed(frames.packed, source);
    const cv::Mat to = Packed(frames.destination, destination);
    for (const Piece& piece : pieces) {
      cv::Mat part = to(piece.to);
      cv::resize(from(piece.from), part, part.size(), 0, 0, cv::INTER_NEAREST);
    }
  };
}

cv::Rect Whole(Size size) { return {0, 0, size.width, size.height}; }

// The centre that zooming in at the suggested parameter enlarges.
std::vector<Piece> ZoomedIn(Size size) {
  const auto side = [](int whole) { return ((whole - whole / 4) * 8 / 10 + whole / 4) & ~1; };
  const int width = side(size.width);
  const int height = side(size.height);
  return {{{(size.width - width) / 2 & ~1, (size.height - height) / 2 & ~1, width, height},
           Whole(size)}};
}

// The reduced picture without the black around it.
std::vector<Piece> ZoomedOut(Size size) {
  const auto side = [](int whole) { return (whole - (whole - whole / 4) * 2 / 10) & ~1; };
  const int width = side(size.width);
  const int height = side(size.height);
  return {
      {Whole(size), {((size.width - width) & ~3) / 2, (size.height - height) / 2, width, height}}};
}

std::vector<Piece> Grid(Size size, int count) {
  std::vector<Piece> pieces;
  const int width = size.width / count & ~1;
  const int height = size.height / count;
  for (int row = 0; row < count; ++row) {
    for (int column = 0; column < count; ++column) {
      const int x = column * width;
      const int y = row * height;
      pieces.push_back({Whole(size),
                        {x, y, column + 1 == count ? size.width - x : width,
                         row + 1 == count ? size.height - y : height}});
    }
  }
  return pieces;
}

// Eight equal slices of a side, made 1, 2, 4 units wide towards the middle, which takes the rest.
std::vector<Piece> Bulge(Size size, bool across) {
  std::vector<Piece> pieces;
  const int side = across ? size.width : size.height;
  const int unit = across ? side / 60 * 2 : side / 30;
  const int rest = side / 2 - 7 * unit;
  int place = 0;
  const int strips[] = {unit, 2 * unit, 4 * unit, rest, rest, 4 * unit, 2 * unit, unit};
  for (int i = 0; i < 8; ++i) {
    const int from = i * side / 8;
    pieces.push_back(
        across ? Piece{{from, 0, side / 8, size.height}, {place, 0, strips[i], size.height}}
               : Piece{{0, from, size.width, side / 8}, {0, place, size.width, strips[i]}});
    place += strips[i];
  }
  return pieces;
}

void RegisterEffects(Size size) {
  const auto pair = [&](const char* work, EffectRoutine routine, uint32_t parameter,
                        const std::vector<Piece>& pieces) {
    RegisterPair(
        "nearest", work, bench::Name(size), size,
        [=](const Frames& frames) {
          routine(frames.packed, frames.destination, size.width, size.height, parameter);
        },
        ResizePieces(size, size, pieces));
  };
  pair("ZoomIn:2", ZoomIn, 2, ZoomedIn(size));
  pair("ZoomOut:2", ZoomOut, 2, ZoomedOut(size));
  pair("PictureGrid:3", PictureGrid, 3, Grid(size, 3));
  pair("HorizontalBulge", HorizontalBulge, 0, Bulge(size, true));
  pair("VerticalBulge", VerticalBulge, 0, Bulge(size, false));
}

void RegisterNearest(const char* row, Size from, Size to) {
  RegisterPair(
      row, "CropScaleYUV16", Name(from, to), from,
      [=](const Frames& frames) {
        CropScaleYUV16(frames.packed, from.width, from.height, frames.destination, to.width,
                       to.height, 0, 0, from.width, from.height);
      },
      ResizePieces(from, to, {{Whole(from), Whole(to)}}));
}

void RegisterBilinear(Size from, Size to) {
  RegisterPair(
      "bilinear", "CropScaleYUV16Bilinear", Name(from, to), from,
      [=](const Frames& frames) {
        CropScaleYUV16Bilinear(frames.packed, from.width, from.height, frames.destination, to.width,
                               to.height, 0, 0, from.width, from.height);
      },
      ScalePacked(from, to));
  RegisterPair(
      "plane", "ScalePlaneBilinear", Name(from, to), from,
      [=](const Frames& frames) {
        ScalePlaneBilinear(frames.planes.y, from.width, from.height, frames.destination, to.width,
                           to.height);
      },
      [=](const Frames& frames) {
        libyuv::ScalePlane(frames.planes.y, from.width, from.width, from.height, frames.destination,
                           to.width, to.width, to.height, libyuv::kFilterBilinear);
      });
}

}  // namespace

Work ScalePacked(Size from, Size to) {
  using Buffer = std::vector<uint8_t>;
  return [=, apart = Buffer(FrameBytes(from)),
          scaled = Buffer(FrameBytes(to))](const Frames& frames) mutable {
    const Planes<uint8_t> a = PlanesAt(apart.data(), from);
    const Planes<uint8_t> b = PlanesAt(scaled.data(), to);
    libyuv::YUY2ToI422(frames.packed, 2 * from.width, a.y, from.width, a.u, from.width / 2, a.v,
                       from.width / 2, from.width, from.height);
    libyuv::I422Scale(a.y, from.width, a.u, from.width / 2, a.v, from.width / 2, from.width,
                      from.height, b.y, to.width, b.u, to.width / 2, b.v, to.width / 2, to.width,
                      to.height, libyuv::kFilterBilinear);
    libyuv::I422ToYUY2(b.y, to.width, b.u, to.width / 2, b.v, to.width / 2, frames.destination,
                       2 * to.width, to.width, to.height);
  };
}

void RegisterScalerPairs() {
  constexpr Size kSmall = {640, 480};
  constexpr Size kMiddle = {1280, 720};
  constexpr Size kLarge = {1920, 1080};
  RegisterNearest("nearest", kSmall, kMiddle);
  RegisterNearest("nearest", kSmall, kLarge);
  RegisterNearest("nearest", kMiddle, kSmall);
  RegisterNearest("nearest", kLarge, kSmall);
  RegisterNearest("nearest", kLarge, kMiddle);
  RegisterNearest("nearest", kSmall, {160, 120});
  for (const Size size : kSizes) RegisterEffects(size);
  for (const Size size : kSizes) RegisterNearest("same-size", size, size);
  RegisterBilinear(kSmall, kMiddle);
  RegisterBilinear(kSmall, kLarge);
}

}  // namespace kolm::bench
