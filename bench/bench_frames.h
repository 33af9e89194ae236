// The frames that benchmarks read and write, and the registration of a pair: this library's work
// and a peer's, over the same frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace kolm::bench {

struct Size {
  int width, height;
};

inline constexpr Size kSizes[] = {{640, 480}, {1280, 720}, {1920, 1080}};

// "640x480"
std::string Name(Size size);

inline size_t FrameBytes(Size size) { return size_t{2} * size.width * size.height; }
inline size_t LumaBytes(Size size) { return size_t{1} * size.width * size.height; }

// The planes of a 4:2:2 frame, one directly behind the other.
template <typename Byte>
struct Planes {
  Byte* y;
  Byte* u;
  Byte* v;
};

template <typename Byte>
Planes<Byte> PlanesAt(Byte* frame, Size size) {
  return {frame, frame + LumaBytes(size), frame + LumaBytes(size) / 2 * 3};
}

// What one call works on. Both pictures are the same; each may be read up to a page past its end.
struct Frames {
  const uint8_t* packed;  // an alpha plane of LumaBytes follows
  Planes<const uint8_t> planes;
  uint8_t* destination;  // room for the largest frame and a page
};

using Work = std::function<void(const Frames& frames)>;

// Registers the benchmarks <row>/<work>/<sizeName>/kolm and .../peer, which read frames of
// `source`. Each call gets the next of kRotation sources and of as many destinations, the same ones
// on both sides, as frames in a capture queue follow one another.
inline constexpr int kRotation = 4;
void RegisterPair(const std::string& row, const std::string& work, const std::string& sizeName,
                  Size source, Work kolm, Work peer);

}  // namespace kolm::bench
