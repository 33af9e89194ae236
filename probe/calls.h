// The calls that the console program has the driver make under Wine and that the host program
// repeats, and the frames and files they get.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "probe/client.h"

namespace kolm::probe {

struct Size {
  uint32_t width, height;
};

// One is wider than 1920, two are not whole numbers of 16 x 16 blocks.
constexpr Size kSizes[] = {{640, 480}, {1280, 720}, {2560, 1440},
                           {854, 480}, {426, 240},  {176, 144}};

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

  call({kClientUnloading, 0, 0, 0, 0}, {});
}

// Background replacement: the stores and bitmaps that the host program writes.

constexpr Size kOverlaySizes[] = {{640, 480}, {1280, 720}, {1920, 1080}, {176, 144}};

// A record has the size of a frame of 640 x 720.
constexpr Size kRecordSize = {KOLM_BACKGROUND_WIDTH,
                              sizeof(BackgroundRecord) / 2 / KOLM_BACKGROUND_WIDTH};

constexpr char kFullStore[] = "full.img";
constexpr char kCutStore[] = "cut.img";
constexpr char kEmptyStore[] = "empty.img";

struct Bitmap {
  const char* name;
  uint32_t width, height, bits;
  bool topDown;
  uint32_t missingBytes;  // at the file's end
};

constexpr Bitmap kBitmaps[] = {
    {"same-24.bmp", 640, 480, 24, false, 0},
    {"same-24-top-down.bmp", 640, 480, 24, true, 0},
    {"same-32.bmp", 640, 480, 32, false, 0},
    {"same-32-top-down.bmp", 640, 480, 32, true, 0},
    {"small-24.bmp", 320, 240, 24, false, 0},
    {"small-24-top-down.bmp", 320, 240, 24, true, 0},
    {"small-32.bmp", 320, 240, 32, false, 0},
    {"small-32-top-down.bmp", 320, 240, 32, true, 0},
    {"large-24.bmp", 800, 600, 24, false, 0},
    {"large-24-top-down.bmp", 800, 600, 24, true, 0},
    {"large-32.bmp", 800, 600, 32, false, 0},
    {"large-32-top-down.bmp", 800, 600, 32, true, 0},
    {"grey-8.bmp", 640, 480, 8, false, 0},
    {"cut-24.bmp", 640, 480, 24, false, 300001},
    {"no-pixels-32.bmp", 16, 16, 32, false, 16 * 16 * 4},
    {"no-header.bmp", 16, 16, 24, false, 16 * 16 * 3 + 40},
};
constexpr char kMissingBitmap[] = "missing.bmp";

// `folder` is the host's absolute path of the files; `machineRoot`, put before it, and `systemRoot`
// are names that the program itself can open.
struct Files {
  std::string folder, machineRoot, systemRoot;

  std::filesystem::path At(const std::string& name) const {
    return machineRoot + folder + "/" + name;
  }
  std::filesystem::path Store() const { return systemRoot + "/system32/KolmBg.img"; }
};

// Lets the store be a copy of the file `name`.
inline void PutStore(const Files& files, const std::string& name) {
  std::filesystem::remove(files.Store());
  std::filesystem::copy_file(files.At(name), files.Store());
}

// A frame of a record's size that begins with the zero-terminated path by which the kernel knows
// the file.
inline std::vector<uint8_t> PathBytes(const Files& files, const std::string& name) {
  std::u16string path = u"\\??\\Z:";
  for (const char character : files.folder + "/" + name) {
    path += character == '/' ? u'\\' : static_cast<char16_t>(character);
  }
  std::vector<uint8_t> bytes = DrawFrame(kRecordSize.width, kRecordSize.height);
  std::memcpy(bytes.data(), path.c_str(), (path.size() + 1) * sizeof(char16_t));
  return bytes;
}

// `lives` holds a frame for each overlay size.
inline void OverlayRecord(const Call& call, const std::vector<uint8_t>& record,
                          const std::vector<std::vector<uint8_t>>& lives) {
  for (size_t i = 0; i < lives.size(); ++i) {
    std::vector<uint8_t> source = record;
    source.resize(kClientOverlayHead);
    source.insert(source.end(), lives[i].begin(), lives[i].end());
    call({kClientOverlay, 0, kOverlaySizes[i].width, kOverlaySizes[i].height, 0}, source);
  }
}

// `photographs` holds a frame for each overlay size.
inline void MakeBackgroundCalls(const Call& call, const Files& files,
                                const std::vector<std::vector<uint8_t>>& photographs) {
  // Whatever could be loaded is laid over the photographs.
  const auto load = [&](uint32_t operation, uint32_t index, const std::vector<uint8_t>& bytes) {
    const Answer answer = call({operation, 0, kRecordSize.width, kRecordSize.height, index}, bytes);
    if (answer.frame != bytes) OverlayRecord(call, answer.frame, photographs);
  };
  const std::vector<uint8_t> noise = DrawFrame(kRecordSize.width, kRecordSize.height);

  PutStore(files, kFullStore);
  // Offsets are kept in 32 bits: 2332 wraps to a negative one, 4662 to one within the file.
  for (const uint32_t index : {1, 2, 3, 0, 4, 2332, 4662}) load(kClientLoadRecord, index, noise);
  PutStore(files, kCutStore);
  for (const uint32_t index : {2, 3, 4}) load(kClientLoadRecord, index, noise);
  PutStore(files, kEmptyStore);
  load(kClientLoadRecord, 1, noise);
  std::filesystem::remove(files.Store());
  load(kClientLoadRecord, 1, noise);

  for (const Bitmap& bitmap : kBitmaps) {
    load(kClientLoadBitmap, 0, PathBytes(files, bitmap.name));
  }
  load(kClientLoadBitmap, 0, PathBytes(files, kMissingBitmap));
}

// Face tracking: a photograph panned and zoomed.

constexpr Size kScene = {1280, 960};
constexpr Size kTrackedSizes[] = {{640, 480}, {1280, 720}};
constexpr Size kDetectionSizes[] = {{160, 120}, {320, 240}};
constexpr uint32_t kTrackedFrames = 200;

// Goes from 0 to `limit` and back, `period` frames each way.
inline uint32_t Swing(uint32_t frame, uint32_t period, uint32_t limit) {
  const uint32_t phase = frame % (2 * period);
  return (phase < period ? phase : 2 * period - phase) * limit / period;
}

// Frame number `frame` of a camera's way over the scene.
inline std::vector<uint8_t> FilmScene(const std::vector<uint8_t>& scene, uint32_t frame,
                                      Size size) {
  const uint32_t viewWidth = kScene.width - Swing(frame, 70, 500);
  const uint32_t viewHeight = viewWidth * size.height / size.width;
  const uint32_t left = Swing(frame, 23, kScene.width - viewWidth);
  const uint32_t top = Swing(frame, 31, kScene.height - viewHeight);
  std::vector<uint8_t> view(FrameBytes(size.width, size.height));
  for (uint32_t y = 0; y < size.height; ++y) {
    const uint8_t* row = &scene[size_t{2} * kScene.width * (top + y * viewHeight / size.height)];
    for (uint32_t x = 0; x < size.width; x += 2) {
      const uint32_t pair = (left + x * viewWidth / size.width) / 2;
      std::memcpy(&view[size_t{2} * (size_t{y} * size.width + x)], row + size_t{4} * pair, 4);
    }
  }
  return view;
}

// The frames go to `trackers` trackers in turn, the first with the detection size `detection`, the
// second with the other one.
inline void TrackScene(const Call& call, const std::vector<uint8_t>& scene, Size size,
                       uint32_t detection, uint32_t trackers) {
  for (uint32_t item = 0; item < trackers; ++item) {
    const Size image = kDetectionSizes[(detection + item) % 2];
    call({kClientTrackBegin, item, size.width, size.height, image.width << 16 | image.height},
         std::vector<uint8_t>(FrameBytes(size.width, size.height)));
  }
  for (uint32_t frame = 0; frame < kTrackedFrames; ++frame) {
    const std::vector<uint8_t> view = FilmScene(scene, frame, size);
    for (uint32_t item = 0; item < trackers; ++item) {
      call({kClientTrack, item, size.width, size.height, 0}, view);
    }
  }
  for (uint32_t item = 0; item < trackers; ++item) call({kClientTrackEnd, item, 0, 0, 0}, {});
}

inline void MakeTrackingCalls(const Call& call, const std::vector<uint8_t>& scene) {
  for (const Size& size : kTrackedSizes) {
    TrackScene(call, scene, size, 0, 1);
    TrackScene(call, scene, size, 1, 1);
    TrackScene(call, scene, size, 0, 2);
  }
}

// Milliseconds that one tracker takes for a frame of the scene, the median of several turns.
// `now` tells the time in milliseconds.
inline double TimeTracking(const Call& call, const std::vector<uint8_t>& scene,
                           const std::function<double()>& now) {
  constexpr size_t kTurns = 9;
  constexpr uint32_t kRepeats = 29;
  const Size size = kTrackedSizes[0];
  const Size image = kDetectionSizes[0];
  const std::vector<uint8_t> view = FilmScene(scene, 0, size);
  call({kClientTrackBegin, 0, size.width, size.height, image.width << 16 | image.height}, view);
  std::vector<double> times;
  for (size_t turn = 0; turn < kTurns; ++turn) {
    const double start = now();
    call({kClientTrack, 0, size.width, size.height, kRepeats}, view);
    times.push_back((now() - start) / (kRepeats + 1));
  }
  call({kClientTrackEnd, 0, 0, 0, 0}, {});
  std::sort(times.begin(), times.end());
  return times[kTurns / 2];
}

}  // namespace kolm::probe
