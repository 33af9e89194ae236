// The calls that the console program has the driver make under Wine and that the host program
// repeats, and the frames they get.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "probe/client.h"

namespace kolm::probe {

// One is wider than 1920, two are not whole numbers of 16 x 16 blocks.
constexpr struct {
  uint32_t width, height;
} kSizes[] = {{640, 480}, {1280, 720}, {2560, 1440}, {854, 480}, {426, 240}, {176, 144}};

struct Answer {
  ClientReply reply;
  std::vector<uint8_t> frame;
};

using Call = std::function<Answer(const ClientRequest& request, const std::vector<uint8_t>& frame)>;

inline size_t FrameBytes(uint32_t width, uint32_t height) { return size_t{2} * width * height; }

// Tiles of noise, of gradients and of the extreme values; the same for equal arguments.
inline std::vector<uint8_t> DrawFrame(uint32_t width, uint32_t height) {
  std::vector<uint8_t> frame(FrameBytes(width, height));
  uint32_t noise = 0x9E3779B9 ^ (width << 16) ^ height;
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width * 2; ++x) {
      noise ^= noise << 13;
      noise ^= noise >> 17;
      noise ^= noise << 5;
      const uint32_t tile = (x / 64 + y / 24) % 3;
      const uint32_t value = tile == 0 ? noise : tile == 1 ? x + 2 * y : 0 - (noise >> 31);
      frame[size_t{2} * width * y + x] = static_cast<uint8_t>(value);
    }
  }
  return frame;
}

// Every parameter of every effect's range, as `call` itself reports it, over one frame.
inline void RunAllEffects(const Call& call, uint32_t width, uint32_t height,
                          const std::vector<uint8_t>& frame) {
  for (uint32_t id = KOLM_EFFECT_FIRST; id <= KOLM_EFFECT_LAST; ++id) {
    const ClientReply range = call({kClientLookUp, id, 0, 0, 0}, {}).reply;
    for (uint32_t parameter = range.values[0]; parameter <= range.values[1]; ++parameter) {
      call({kClientRun, id, width, height, parameter}, frame);
    }
  }
}

// `photographs` holds a frame for each size.
inline void MakeAllCalls(const Call& call, const std::vector<std::vector<uint8_t>>& photographs) {
  call({kClientLoaded, 0, 0, 0, 0}, {});
  for (uint32_t id = 0; id <= KOLM_EFFECT_LAST + 1; ++id) {
    call({kClientLookUp, id, 0, 0, 0}, {});
  }
  call({kClientLookUp, 0xFFFFFFFF, 0, 0, 0}, {});

  for (size_t i = 0; i < photographs.size(); ++i) {
    const auto [width, height] = kSizes[i];
    RunAllEffects(call, width, height, DrawFrame(width, height));
    RunAllEffects(call, width, height, photographs[i]);
  }

  call({kClientBackground, 0, 640, 720, 0}, DrawFrame(640, 720));
  call({kClientFaceTracking, 0, kSizes[0].width, kSizes[0].height, 0}, photographs[0]);
  call({kClientUnloading, 0, 0, 0, 0}, {});
}

}  // namespace kolm::probe
