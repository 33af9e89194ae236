// kolm_probe_host: the host library's side of the probe.
//   kolm_probe_host frames PICTURE          writes PICTURE as a frame of each size to standard
//                                           output
//   kolm_probe_host files PICTURE FOLDER    the same for the overlays' sizes; writes stores and
//                                           bitmaps into FOLDER
//   kolm_probe_host scene PICTURE           writes the part of PICTURE that face tracking films as
//                                           a frame to standard output
//   kolm_probe_host speed SCENE             prints the milliseconds of a frame of the scene
//   kolm_probe_host effects FRAMES LOG      repeats the calls whose answers kolm_probe.exe wrote,
//                                           read from standard input, and compares each answer with
//                                           the host library's, then Wine's log with the debugger
//                                           lines
//   kolm_probe_host tracking SCENE LOG      the same for face tracking
//   kolm_probe_host background FRAMES LOG FOLDER  the same for background replacement; the store
//                                           lies in the folder that KOLM_SYSTEM_ROOT names
// The exit code is 0 if all is equal.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "module/entry.h"
#include "platform/host/host_kernel.h"
#include "probe/calls.h"

namespace kolm::probe {
namespace {

cv::Mat ReadPicture(const std::string& name) {
  cv::Mat picture = cv::imread(name, cv::IMREAD_COLOR);
  if (picture.empty()) throw std::runtime_error("cannot read " + name);
  return picture;
}

cv::Mat Resize(const cv::Mat& picture, uint32_t width, uint32_t height) {
  cv::Mat resized;
  cv::resize(picture, resized, cv::Size(static_cast<int>(width), static_cast<int>(height)));
  return resized;
}

std::vector<uint8_t> MakeFrame(const cv::Mat& picture, const Size& size) {
  cv::Mat yuv;
  cv::cvtColor(Resize(picture, size.width, size.height), yuv, cv::COLOR_BGR2YUV);
  std::vector<uint8_t> frame;
  for (int y = 0; y < yuv.rows; ++y) {
    for (int x = 0; x < yuv.cols; ++x) {
      const cv::Vec3b& pixel = yuv.at<cv::Vec3b>(y, x);
      frame.push_back(pixel[0]);
      frame.push_back(pixel[1 + x % 2]);
    }
  }
  return frame;
}

template <size_t count>
void WriteFrames(const cv::Mat& picture, const Size (&sizes)[count]) {
  for (const Size& size : sizes) {
    const std::vector<uint8_t> frame = MakeFrame(picture, size);
    if (std::fwrite(frame.data(), 1, frame.size(), stdout) != frame.size()) {
      throw std::runtime_error("cannot write the frames");
    }
  }
}

// Of a portrait the upper part, in the scene's shape.
void WriteScene(const cv::Mat& picture) {
  const int height =
      picture.cols * static_cast<int>(kScene.height) / static_cast<int>(kScene.width);
  WriteFrames(picture(cv::Rect(0, 0, picture.cols, std::min(height, picture.rows))), {kScene});
}

void WriteFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  std::ofstream file(name, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + name);
}

template <typename Value>
void AppendLittleEndian(std::vector<uint8_t>* bytes, Value value) {
  for (size_t i = 0; i < sizeof value; ++i) {
    bytes->push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
}

std::vector<uint8_t> MakeBitmap(const cv::Mat& picture, const Bitmap& bitmap) {
  cv::Mat pixels = Resize(picture, bitmap.width, bitmap.height);
  if (bitmap.bits == 8) {
    cv::cvtColor(pixels, pixels, cv::COLOR_BGR2GRAY);
  } else if (bitmap.bits == 32) {
    std::vector<uint8_t> drawn = DrawFrame(bitmap.width, bitmap.height);
    std::vector<cv::Mat> channels;
    cv::split(pixels, channels);
    channels.emplace_back(pixels.size(), CV_8U, drawn.data());
    cv::merge(channels, pixels);
  }
  if (!bitmap.topDown) cv::flip(pixels, pixels, 0);
  const uint32_t palette = bitmap.bits == 8 ? 256 : 0;
  const uint32_t pixelStart = 54 + palette * 4;
  const uint32_t pixelBytes = bitmap.width * bitmap.height * bitmap.bits / 8;

  std::vector<uint8_t> file = {'B', 'M'};
  AppendLittleEndian(&file, pixelStart + pixelBytes);
  AppendLittleEndian(&file, uint32_t{0});
  AppendLittleEndian(&file, pixelStart);
  AppendLittleEndian(&file, uint32_t{40});
  AppendLittleEndian(&file, bitmap.width);
  AppendLittleEndian(&file, bitmap.topDown ? 0 - bitmap.height : bitmap.height);
  AppendLittleEndian(&file, uint16_t{1});
  AppendLittleEndian(&file, static_cast<uint16_t>(bitmap.bits));
  AppendLittleEndian(&file, uint32_t{0});
  // May be left out, but for rows from top to bottom.
  AppendLittleEndian(&file, bitmap.topDown || bitmap.bits == 32 ? pixelBytes : uint32_t{0});
  for (const uint32_t value : {2835u, 2835u, palette, 0u}) AppendLittleEndian(&file, value);
  for (uint32_t grey = 0; grey < palette; ++grey) AppendLittleEndian(&file, grey * 0x010101);
  file.insert(file.end(), pixels.data, pixels.data + pixelBytes);
  file.resize(file.size() - bitmap.missingBytes);
  return file;
}

void WriteFiles(const cv::Mat& picture, const std::string& folder) {
  std::vector<uint8_t> store = MakeFrame(picture, {KOLM_BACKGROUND_WIDTH, KOLM_BACKGROUND_HEIGHT});
  // The first record's alpha, and two records that are not the bytes that loads begin with.
  for (const Size& size : {Size{640, 240}, Size{720, 640}, Size{1440, 320}}) {
    const std::vector<uint8_t> drawn = DrawFrame(size.width, size.height);
    store.insert(store.end(), drawn.begin(), drawn.end());
  }
  WriteFile(folder + "/" + kFullStore, store);
  store.resize(store.size() - 123457);
  WriteFile(folder + "/" + kCutStore, store);
  WriteFile(folder + "/" + kEmptyStore, {});
  for (const Bitmap& bitmap : kBitmaps) {
    WriteFile(folder + "/" + bitmap.name, MakeBitmap(picture, bitmap));
  }
}

void ReadBytes(std::FILE* file, void* bytes, size_t size) {
  if (std::fread(bytes, 1, size, file) != size) throw std::runtime_error("too few bytes");
}

Answer CallHost(const ClientRequest& request, const std::vector<uint8_t>& frame) {
  Answer answer = {{}, std::vector<uint8_t>(ClientDestinationBytes(&request))};
  if (request.operation == kClientLoaded) {
    static const char16_t kKey[] =
        u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Kolm";
    const CountedString key = {sizeof kKey - sizeof kKey[0], sizeof kKey, kKey};
    answer.reply.results[0] = DllInitialize(&key);
  } else if (request.operation == kClientUnloading) {
    answer.reply.results[0] = DllUnload();
  } else {
    CallKolm(&request, frame.data(), &answer.reply, answer.frame.data());
  }
  return answer;
}

// The line that shows a routine's pointer.
std::string RunLine(uint64_t routine) {
  char line[64];
  std::snprintf(line, sizeof line, "Kolm: Kolm_VE_RunVideoEffect, %" PRIx32,
                static_cast<uint32_t>(routine));
  return line;
}

class Comparison {
 public:
  Comparison() {
    host::SetDebugSink([this](const std::string& text) {
      lines_.push_back(text.ends_with('\n') ? text.substr(0, text.size() - 1) : text);
    });
  }

  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;

  ~Comparison() { host::SetDebugSink(nullptr); }

  Answer Call(const ClientRequest& request, const std::vector<uint8_t>& frame) {
    const size_t firstLine = lines_.size();
    Answer own = CallHost(request, frame);

    ClientRequest theirRequest;
    Answer theirs = {{}, std::vector<uint8_t>(own.frame.size())};
    ReadBytes(stdin, &theirRequest, sizeof theirRequest);
    if (std::memcmp(&request, &theirRequest, sizeof request) != 0) {
      throw std::runtime_error("the lists of calls differ");
    }
    ReadBytes(stdin, &theirs.reply, sizeof theirs.reply);
    ReadBytes(stdin, theirs.frame.data(), theirs.frame.size());

    ++calls_;
    bytes_ += own.frame.size();
    CompareReplies(request, own.reply, theirs.reply);
    CompareFrames(request, own.frame, theirs.frame);
    // The module's own routine is what its line must show.
    for (size_t i = firstLine; i < lines_.size(); ++i) {
      if (lines_[i] == RunLine(own.reply.routine)) lines_[i] = RunLine(theirs.reply.routine);
    }
    return own;
  }

  void CompareLog(const std::string& logName) {
    std::ifstream file(logName, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + logName);
    // What Wine puts before each text. A text is a line, whether it ends in one or not.
    const std::regex prefix(
        "^(?:[0-9a-f]{4,}:)+warn:debugstr:vDbgPrintExWithPrefix "
        "[0-9a-f]{8}:[0-9a-f]{8}: (.*)$");
    size_t count = 0;
    for (std::string line; std::getline(file, line);) {
      std::smatch match;
      if (!std::regex_match(line, match, prefix)) continue;
      const std::string text = match[1];
      if (count < lines_.size() && text != lines_[count]) {
        Differ("debugger line %zu: host %s, module %s", count, lines_[count].c_str(), text.c_str());
      }
      ++count;
    }
    if (count != lines_.size()) {
      Differ("debugger lines: host %zu, module %zu", lines_.size(), count);
    }
  }

  bool Report() const {
    std::printf("%zu calls, %zu bytes of frames, %zu debugger lines: %zu differences\n", calls_,
                bytes_, lines_.size(), differences_);
    return differences_ == 0 && bytes_ != 0;
  }

 private:
  template <typename... Values>
  void Differ(const char* format, Values... values) {
    if (++differences_ > 20) return;
    std::fprintf(stderr, format, values...);
    std::fputc('\n', stderr);
  }

  void CompareReplies(const ClientRequest& request, const ClientReply& own,
                      const ClientReply& theirs) {
    if (std::memcmp(own.results, theirs.results, sizeof own.results) != 0 ||
        std::memcmp(own.values, theirs.values, sizeof own.values) != 0 ||
        std::memcmp(own.tracker, theirs.tracker, sizeof own.tracker) != 0 ||
        (own.routine == 0) != (theirs.routine == 0)) {
      Differ("operation %u, item %u: other results", request.operation, request.item);
    }
  }

  void CompareFrames(const ClientRequest& request, const std::vector<uint8_t>& own,
                     const std::vector<uint8_t>& theirs) {
    if (own == theirs) return;
    size_t i = 0;
    while (own[i] == theirs[i]) ++i;
    Differ("operation %u, item %u, %ux%u, parameter %u: byte %zu: host %02x, module %02x",
           request.operation, request.item, request.width, request.height, request.parameter, i,
           own[i], theirs[i]);
  }

  std::vector<std::string> lines_;
  size_t calls_ = 0;
  size_t bytes_ = 0;
  size_t differences_ = 0;
};

template <size_t count>
std::vector<std::vector<uint8_t>> ReadFrames(const std::string& framesName,
                                             const Size (&sizes)[count]) {
  std::FILE* file = std::fopen(framesName.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error("cannot read " + framesName);
  std::vector<std::vector<uint8_t>> photographs;
  for (const Size& size : sizes) {
    photographs.emplace_back(FrameBytes(size.width, size.height));
    ReadBytes(file, photographs.back().data(), photographs.back().size());
  }
  std::fclose(file);
  return photographs;
}

bool Compare(const std::function<void(const Call& call)>& makeCalls, const std::string& logName) {
  Comparison comparison;
  makeCalls([&](const ClientRequest& request, const std::vector<uint8_t>& frame) {
    return comparison.Call(request, frame);
  });
  // The console program's end: its log is complete.
  if (std::fgetc(stdin) != EOF) throw std::runtime_error("more answers than calls");
  comparison.CompareLog(logName);
  return comparison.Report();
}

bool CompareEffects(const std::string& framesName, const std::string& logName) {
  const auto photographs = ReadFrames(framesName, kSizes);
  return Compare([&](const Call& call) { MakeAllCalls(call, photographs); }, logName);
}

bool CompareTracking(const std::string& sceneName, const std::string& logName) {
  const std::vector<uint8_t> scene = ReadFrames(sceneName, {kScene})[0];
  return Compare([&](const Call& call) { MakeTrackingCalls(call, scene); }, logName);
}

void Speed(const std::string& sceneName) {
  const auto now = [] {
    return std::chrono::duration<double, std::milli>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
  };
  host::SetDebugSink([](const std::string&) {});
  std::printf("%.3f\n", TimeTracking(CallHost, ReadFrames(sceneName, {kScene})[0], now));
}

bool CompareBackground(const std::string& framesName, const std::string& logName,
                       const std::string& folder) {
  const char* systemRoot = std::getenv("KOLM_SYSTEM_ROOT");
  if (systemRoot == nullptr) throw std::runtime_error("KOLM_SYSTEM_ROOT is not set");
  const auto photographs = ReadFrames(framesName, kOverlaySizes);
  const Files files = {folder, "", systemRoot};
  return Compare([&](const Call& call) { MakeBackgroundCalls(call, files, photographs); }, logName);
}

}  // namespace
}  // namespace kolm::probe

int main(int argumentCount, char** arguments) {
  using namespace kolm::probe;
  const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
  try {
    if (words.size() == 2 && words[0] == "frames") {
      WriteFrames(ReadPicture(words[1]), kSizes);
      return 0;
    }
    if (words.size() == 3 && words[0] == "files") {
      const cv::Mat picture = ReadPicture(words[1]);
      WriteFiles(picture, words[2]);
      WriteFrames(picture, kOverlaySizes);
      return 0;
    }
    if (words.size() == 2 && words[0] == "scene") {
      WriteScene(ReadPicture(words[1]));
      return 0;
    }
    if (words.size() == 2 && words[0] == "speed") {
      Speed(words[1]);
      return 0;
    }
    if (words.size() == 3 && words[0] == "tracking") {
      return CompareTracking(words[1], words[2]) ? 0 : 1;
    }
    if (words.size() == 3 && words[0] == "effects") {
      return CompareEffects(words[1], words[2]) ? 0 : 1;
    }
    if (words.size() == 4 && words[0] == "background") {
      return CompareBackground(words[1], words[2], words[3]) ? 0 : 1;
    }
    throw std::runtime_error(
        "usage: kolm_probe_host frames PICTURE | files PICTURE FOLDER | scene PICTURE | "
        "speed SCENE | effects FRAMES LOG | tracking SCENE LOG | "
        "background FRAMES LOG FOLDER");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kolm_probe_host: %s\n", error.what());
    return 1;
  }
}
