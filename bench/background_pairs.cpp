// Background replacement: scaling a record, blending a frame, converting a bitmap's rows.
#include <libyuv.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "background/background.h"
#include "background/bitmap_conversion.h"
#include "bench/bench_frames.h"
#include "bench/pairs.h"
#include "module/kolm.h"

namespace kolm::bench {
namespace {

using Buffer = std::vector<uint8_t>;

constexpr Size kRecordSize = {KOLM_BACKGROUND_WIDTH, KOLM_BACKGROUND_HEIGHT};

// A scaled background: a person's place left free, with soft edges.
Buffer Background(Size size) {
  Buffer background(FrameBytes(size) + LumaBytes(size));
  uint8_t* pixel = background.data();
  uint8_t* alpha = pixel + FrameBytes(size);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      *pixel++ = static_cast<uint8_t>(x + y);
      *pixel++ = 128;
      const int fromPerson = std::abs(x - size.width / 2) - size.width / 5;
      *alpha++ = static_cast<uint8_t>(std::clamp(fromPerson * 16, 0, 255));
    }
  }
  return background;
}

// One alpha for each byte of the packed frame, as a blend of plain bytes needs it.
Buffer SpreadAlpha(const Buffer& background, Size size) {
  const uint8_t* alpha = background.data() + FrameBytes(size);
  Buffer spread(FrameBytes(size));
  for (size_t pixel = 0; pixel < LumaBytes(size); ++pixel) {
    spread[2 * pixel] = alpha[pixel];
    spread[2 * pixel + 1] = alpha[pixel & ~size_t{1}];
  }
  return spread;
}

// The background stays the same from frame to frame.
void RegisterBlending(Size size) {
  const Buffer background = Background(size);
  const int rowBytes = 2 * size.width;
  RegisterPair(
      "blending", "BlendBackground", Name(size), size,
      [=](const Frames& frames) {
        BlendBackground(size.width, size.height, background.data(), frames.packed,
                        frames.destination);
      },
      [=, alpha = SpreadAlpha(background, size)](const Frames& frames) {
        libyuv::BlendPlane(background.data(), rowBytes, frames.packed, rowBytes, alpha.data(),
                           rowBytes, frames.destination, rowBytes, rowBytes, size.height);
      });
}

void RegisterScaling(Size to) {
  RegisterPair(
      "background", "ScaleBackground", Name(kRecordSize) + "-" + Name(to), kRecordSize,
      [=](const Frames& frames) {
        ScaleBackground(frames.packed, frames.destination, to.width, to.height);
      },
      [=, scalePicture = ScalePacked(kRecordSize, to)](const Frames& frames) {
        scalePicture(frames);
        libyuv::ScalePlane(frames.packed + FrameBytes(kRecordSize), kRecordSize.width,
                           kRecordSize.width, kRecordSize.height,
                           frames.destination + FrameBytes(to), to.width, to.width, to.height,
                           libyuv::kFilterBilinear);
      });
}

// Rows from bottom to top, as most files have them. A frame with its alpha plane is as large as the
// pixels of three bytes, and its bytes serve as such.
void RegisterConversion() {
  constexpr int kWidth = kRecordSize.width;
  constexpr int kHeight = kRecordSize.height;
  RegisterPair(
      "conversion", "ConvertPicture:24", Name(kRecordSize), kRecordSize,
      [](const Frames& frames) {
        ConvertPicture(frames.packed, 3, RowOrder::BottomUp, frames.destination);
      },
      [argb = Buffer(4 * LumaBytes(kRecordSize))](const Frames& frames) mutable {
        libyuv::RGB24ToARGB(frames.packed, 3 * kWidth, argb.data(), 4 * kWidth, kWidth, -kHeight);
        libyuv::ARGBToYUY2(argb.data(), 4 * kWidth, frames.destination, 2 * kWidth, kWidth,
                           kHeight);
      });
}

}  // namespace

void RegisterBackgroundPairs() {
  for (const Size size : kSizes) RegisterBlending(size);
  RegisterScaling({1280, 720});
  RegisterConversion();
}

}  // namespace kolm::bench
