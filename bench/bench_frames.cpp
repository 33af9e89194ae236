// Frame memory and the measuring loop.
#include "bench/bench_frames.h"

#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <utility>

namespace kolm::bench {
namespace {

constexpr size_t kPage = 4096;
constexpr Size kLargest = {1920, 1080};

struct FreeBlock {
  void operator()(uint8_t* block) const { std::free(block); }
};
using Block = std::unique_ptr<uint8_t[], FreeBlock>;

// On a page's start, as the kernel gives out blocks of this size, and touched, so that no call pays
// for a page fault.
Block Allocate(size_t bytes) {
  const size_t whole = (bytes + 2 * kPage - 1) / kPage * kPage;
  Block block(static_cast<uint8_t*>(std::aligned_alloc(kPage, whole)));
  if (block == nullptr) throw std::bad_alloc();
  std::memset(block.get(), 16, whole);
  return block;
}

// A picture with what cameras give: slow gradients, hard edges, sensor noise.
void Paint(uint8_t* frame, Size size, int seed) {
  std::minstd_rand random(seed + 1);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const bool inside = (x / 97 + y / 61 + seed) % 3 == 0;
      const int noise = static_cast<int>(random() >> 8 & 15);
      const int luma = 40 + (x + 2 * y) * 120 / (size.width + 2 * size.height) + noise;
      const int chroma = (x % 2 == 0 ? x : y) * 90 / size.width + 80 + noise / 4;
      *frame++ = static_cast<uint8_t>(inside ? 235 - luma / 2 : luma);
      *frame++ = static_cast<uint8_t>(inside ? 255 - chroma : chroma);
    }
  }
}

struct Sources {
  std::array<Block, kRotation> packed;
  std::array<Block, kRotation> planar;
};

const Sources& SourcesOf(Size size) {
  static std::map<std::pair<int, int>, Sources> all;
  Sources& sources = all[{size.width, size.height}];
  if (sources.packed[0] != nullptr) return sources;
  for (int i = 0; i < kRotation; ++i) {
    sources.packed[i] = Allocate(FrameBytes(size) + LumaBytes(size));
    sources.planar[i] = Allocate(FrameBytes(size));
    Paint(sources.packed[i].get(), size, i);
    const Planes<uint8_t> planes = PlanesAt(sources.planar[i].get(), size);
    libyuv::YUY2ToI422(sources.packed[i].get(), 2 * size.width, planes.y, size.width, planes.u,
                       size.width / 2, planes.v, size.width / 2, size.width, size.height);
  }
  return sources;
}

const std::array<Block, kRotation>& Destinations() {
  static const std::array<Block, kRotation> all = [] {
    std::array<Block, kRotation> blocks;
    for (Block& block : blocks) block = Allocate(FrameBytes(kLargest));
    return blocks;
  }();
  return all;
}

void Measure(benchmark::State& state, Size source, const Work& work) {
  std::array<Frames, kRotation> rotation;
  for (int i = 0; i < kRotation; ++i) {
    const Sources& sources = SourcesOf(source);
    rotation[i] = {sources.packed[i].get(),
                   PlanesAt<const uint8_t>(sources.planar[i].get(), source),
                   Destinations()[i].get()};
  }
  for (const Frames& frames : rotation) work(frames);
  size_t turn = 0;
  for (auto _ : state) {
    work(rotation[turn]);
    turn = (turn + 1) % kRotation;
    benchmark::ClobberMemory();
  }
}

}  // namespace

std::string Name(Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

void RegisterPair(const std::string& row, const std::string& work, const std::string& sizeName,
                  Size source, Work kolm, Work peer) {
  const std::string name = row + "/" + work + "/" + sizeName;
  const std::pair<const char*, Work> sides[] = {{"/kolm", std::move(kolm)},
                                                {"/peer", std::move(peer)}};
  for (const auto& [side, call] : sides) {
    benchmark::RegisterBenchmark((name + side).c_str(), [source,
                                                         call = call](benchmark::State& state) {
      Measure(state, source, call);
    })->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace kolm::bench
