// kolm_probe_host: the host library's side of the probe.
//   kolm_probe_host frames PICTURE      writes PICTURE as a frame of each size to standard output
//   kolm_probe_host compare FRAMES LOG  repeats the calls whose answers kolm_probe.exe wrote, read
//                                       from standard input, and compares each answer with the host
//                                       library's, then Wine's log with the debugger lines
// The exit code is 0 if all is equal.
#include <cinttypes>
#include <cstdio>
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

void WriteFrames(const std::string& pictureName) {
  const cv::Mat picture = cv::imread(pictureName, cv::IMREAD_COLOR);
  if (picture.empty()) throw std::runtime_error("cannot read " + pictureName);
  for (const auto& size : kSizes) {
    cv::Mat yuv;
    cv::resize(picture, yuv, cv::Size(static_cast<int>(size.width), static_cast<int>(size.height)));
    cv::cvtColor(yuv, yuv, cv::COLOR_BGR2YUV);
    std::vector<uint8_t> frame;
    for (int y = 0; y < yuv.rows; ++y) {
      for (int x = 0; x < yuv.cols; ++x) {
        const cv::Vec3b& pixel = yuv.at<cv::Vec3b>(y, x);
        frame.push_back(pixel[0]);
        frame.push_back(pixel[1 + x % 2]);
      }
    }
    if (std::fwrite(frame.data(), 1, frame.size(), stdout) != frame.size()) {
      throw std::runtime_error("cannot write the frames");
    }
  }
}

void ReadBytes(std::FILE* file, void* bytes, size_t size) {
  if (std::fread(bytes, 1, size, file) != size) throw std::runtime_error("too few bytes");
}

Answer CallHost(const ClientRequest& request, const std::vector<uint8_t>& frame) {
  Answer answer = {{}, std::vector<uint8_t>(frame.size())};
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
  std::snprintf(line, sizeof line, "Kolm: Kolm_VE_RunVideoEffect, %" PRIx32 "\n",
                static_cast<uint32_t>(routine));
  return line;
}

class Comparison {
 public:
  Comparison() {
    host::SetDebugSink([this](const std::string& text) { lines_.push_back(text); });
  }

  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;

  ~Comparison() { host::SetDebugSink(nullptr); }

  Answer Call(const ClientRequest& request, const std::vector<uint8_t>& frame) {
    const size_t firstLine = lines_.size();
    Answer own = CallHost(request, frame);

    ClientRequest theirRequest;
    Answer theirs = {{}, std::vector<uint8_t>(frame.size())};
    ReadBytes(stdin, &theirRequest, sizeof theirRequest);
    if (std::memcmp(&request, &theirRequest, sizeof request) != 0) {
      throw std::runtime_error("the lists of calls differ");
    }
    ReadBytes(stdin, &theirs.reply, sizeof theirs.reply);
    ReadBytes(stdin, theirs.frame.data(), theirs.frame.size());

    ++calls_;
    bytes_ += frame.size();
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
    // What Wine puts before each text.
    const std::regex prefix(
        "^[0-9a-f]{4,}:warn:debugstr:vDbgPrintExWithPrefix "
        "[0-9a-f]{8}:[0-9a-f]{8}: (Kolm: .*)$");
    size_t count = 0;
    for (std::string line; std::getline(file, line);) {
      std::smatch match;
      if (!std::regex_match(line, match, prefix)) continue;
      const std::string text = match[1].str() + "\n";
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
        (own.routine == 0) != (theirs.routine == 0)) {
      Differ("operation %u, effect %u: other results", request.operation, request.effectId);
    }
  }

  void CompareFrames(const ClientRequest& request, const std::vector<uint8_t>& own,
                     const std::vector<uint8_t>& theirs) {
    if (own == theirs) return;
    size_t i = 0;
    while (own[i] == theirs[i]) ++i;
    Differ("operation %u, effect %u, %ux%u, parameter %u: byte %zu: host %02x, module %02x",
           request.operation, request.effectId, request.width, request.height, request.parameter, i,
           own[i], theirs[i]);
  }

  std::vector<std::string> lines_;
  size_t calls_ = 0;
  size_t bytes_ = 0;
  size_t differences_ = 0;
};

bool Compare(const std::string& framesName, const std::string& logName) {
  std::FILE* file = std::fopen(framesName.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error("cannot read " + framesName);
  std::vector<std::vector<uint8_t>> photographs;
  for (const auto& size : kSizes) {
    photographs.emplace_back(FrameBytes(size.width, size.height));
    ReadBytes(file, photographs.back().data(), photographs.back().size());
  }
  std::fclose(file);

  Comparison comparison;
  MakeAllCalls([&](const ClientRequest& request,
                   const std::vector<uint8_t>& frame) { return comparison.Call(request, frame); },
               photographs);
  // The console program's end: its log is complete.
  if (std::fgetc(stdin) != EOF) throw std::runtime_error("more answers than calls");
  comparison.CompareLog(logName);
  return comparison.Report();
}

}  // namespace
}  // namespace kolm::probe

int main(int argumentCount, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
  try {
    if (words.size() == 2 && words[0] == "frames") {
      kolm::probe::WriteFrames(words[1]);
      return 0;
    }
    if (words.size() == 3 && words[0] == "compare") {
      return kolm::probe::Compare(words[1], words[2]) ? 0 : 1;
    }
    throw std::runtime_error("usage: kolm_probe_host frames PICTURE | compare FRAMES LOG");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kolm_probe_host: %s\n", error.what());
    return 1;
  }
}
