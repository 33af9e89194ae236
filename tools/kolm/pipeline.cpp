// Reads, works and writes on a thread each, with short queues between them.
#include "tools/kolm/pipeline.h"

#include <CLI/CLI.hpp>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

extern "C" {
#include <libavutil/cpu.h>
#include <libavutil/parseutils.h>
}

#include "tools/kolm/failure.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/progress.h"
#include "tools/kolm/stop_request.h"

namespace kolm {
namespace {

// Few items, so that memory does not grow with the video, and frames are still in the processor's
// cache when the next thread takes them.
constexpr size_t kQueueLength = 3;

class ItemQueue {
 public:
  // Waits while the queue is full; false once it is closed.
  bool Push(MediaItem item) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return isClosed_ || items_.size() < kQueueLength; });
    if (isClosed_) return false;
    items_.push_back(std::move(item));
    changed_.notify_all();
    return true;
  }

  // Waits while the queue is empty; false once it is closed and empty.
  bool Pop(MediaItem& item) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return isClosed_ || !items_.empty(); });
    if (items_.empty()) return false;
    item = std::move(items_.front());
    items_.pop_front();
    changed_.notify_all();
    return true;
  }

  void Close() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<MediaItem> items_;
  bool isClosed_ = false;
};

// One item's way; counts the frames.
class Worker {
 public:
  Worker(const FrameWork& work, int64_t total) : work_(work), progress_(total) {}

  void Do(MediaItem& item) {
    if (!item.frame) return;
    const int64_t time = item.frame->pts;
    item.frame = work_(std::move(item.frame));
    item.frame->pts = time;
    progress_.Show(++done_);
  }

 private:
  const FrameWork& work_;
  Progress progress_;
  int64_t done_ = 0;
};

// What reading threw, to be thrown again when the output is finished. What the work or writing
// throws comes out at once.
std::exception_ptr RunByTurns(FrameSource& source, Worker& worker, FrameSink& sink) {
  MediaItem item;
  while (true) {
    try {
      if (!source.Next(item)) return nullptr;
    } catch (...) {
      return std::current_exception();
    }
    worker.Do(item);
    sink.Write(std::move(item));
  }
}

std::exception_ptr RunOverlapped(FrameSource& source, Worker& worker, FrameSink& sink) {
  ItemQueue toWork, toWrite;
  std::exception_ptr reading, working, writing;
  std::thread reader([&] {
    try {
      MediaItem item;
      while (source.Next(item) && toWork.Push(std::move(item))) {
      }
    } catch (...) {
      reading = std::current_exception();
    }
    toWork.Close();
  });
  std::thread writer([&] {
    try {
      MediaItem item;
      while (toWrite.Pop(item)) sink.Write(std::move(item));
    } catch (...) {
      writing = std::current_exception();
      toWrite.Close();
    }
  });
  try {
    MediaItem item;
    while (toWork.Pop(item)) {
      worker.Do(item);
      if (!toWrite.Push(std::move(item))) break;
    }
  } catch (...) {
    working = std::current_exception();
  }
  toWrite.Close();
  writer.join();
  if (working || writing) RequestStop();  // the reader may wait for input
  toWork.Close();
  reader.join();
  if (writing) std::rethrow_exception(writing);
  if (working) std::rethrow_exception(working);
  return reading;
}

// Text behind another, if there is any.
std::string AsFurther(const std::string& text) { return text.empty() ? text : "; " + text; }

[[noreturn]] void FailForOption(const char* option, const std::string& value,
                                const char* expected) {
  throw Failure(ExitCode::CommandLine,
                std::string(option) + " '" + value + "' is not understood; expected " + expected);
}

}  // namespace

const char* const kAboutMedia =
    "INPUT is a picture, a video, a numbered sequence of pictures (frame-%04d.png), a camera\n"
    "(/dev/video0), or - for standard input: YUV4MPEG2 or another stream that can be told by its\n"
    "beginning, or raw packed frames (yuyv422) with -s and -r. OUTPUT is one of these but a "
    "camera,\n"
    "in the format of its extension; on - it is YUV4MPEG2, or raw frames if INPUT is raw. Sound "
    "is\n"
    "passed on as it is where OUTPUT's format holds it.\n\n"
    "Frames reach the module as packed 4:2:2 in BT.601 limited range: BT.709 and full range are\n"
    "converted, what tells no colour space is taken for BT.601, and videos are written as BT.601.\n"
    "Packed 4:2:2 is not converted at all. Lossy codecs get 4:2:0 (MJPEG 4:2:2), lossless ones\n"
    "4:2:2. Transparent parts of pictures are laid on white; of an odd width the last column is\n"
    "left out; what a telephone has marked as turned is turned upright.\n\n"
    "The first SIGINT (Ctrl-C), SIGTERM or SIGHUP ends OUTPUT properly, a second one at once. "
    "What\n"
    "cannot be finished, for instance on a full disk, stays beside OUTPUT, '.part-' in its name; "
    "so\n"
    "does what comes of a stop or of damage where OUTPUT is INPUT. Pictures of a sequence keep "
    "their\n"
    "numbers and are written one by one.";

void AddMediaArguments(CLI::App* command, MediaArguments& arguments) {
  command->add_option("INPUT", arguments.input, "What frames come from")->required()->type_name("");
  command->add_option("OUTPUT", arguments.output, "What frames go to")->required()->type_name("");
  command->add_flag("-y,--yes", arguments.overwrite, "Overwrite OUTPUT if it exists");
  command->add_flag("-q,--quiet", arguments.quiet, "No progress bar and no notes");
  command->add_option("-s,--size", arguments.size, "Size of raw frames, or wished for of a camera")
      ->type_name("WxH");
  command
      ->add_option("-r,--rate", arguments.rate,
                   "Frames a second of raw frames and sequences (25), or wished for of a camera; "
                   "may be a fraction: 30000/1001")
      ->type_name("FPS");
  command
      ->add_option("--format", arguments.format,
                   "OUTPUT's format by FFmpeg's name, for instance rawvideo or yuv4mpegpipe")
      ->type_name("NAME");
  command
      ->add_option("--codec", arguments.codec,
                   "The encoder by FFmpeg's name, for instance ffv1; by default the format's own")
      ->type_name("NAME");
  command
      ->add_option("--crf", arguments.quality,
                   "The encoder's constant quality, from 0, the best; by default 18, or a "
                   "quantiser's scale of 3 where it has no such setting")
      ->check(CLI::Range(0, 63))
      ->type_name("N");
}

SourceOptions ReadSourceOptions(const MediaArguments& arguments) {
  SourceOptions options;
  options.input = arguments.input;
  if (!arguments.size.empty()) {
    char rest = 0;
    if (std::sscanf(arguments.size.c_str(), "%5dx%5d%c", &options.width, &options.height, &rest) !=
            2 ||
        options.width < 1 || options.height < 1) {
      FailForOption("the size", arguments.size, "WIDTHxHEIGHT, for instance 1280x720");
    }
  }
  if (!arguments.rate.empty() &&
      (av_parse_video_rate(&options.rate, arguments.rate.c_str()) < 0 || options.rate.num <= 0)) {
    FailForOption("the rate", arguments.rate, "frames a second, for instance 25 or 30000/1001");
  }
  return options;
}

void ProcessMedia(const MediaArguments& arguments,
                  const std::function<FrameWork(const MediaShape&)>& makeWork) {
  if (arguments.quiet) SetQuiet();
  WatchForStop();
  const SourceOptions sourceOptions = ReadSourceOptions(arguments);
  const SinkOptions sinkOptions = {arguments.output, arguments.overwrite, arguments.format,
                                   arguments.codec, arguments.quality};
  CheckSink(sinkOptions);
  const std::unique_ptr<FrameSource> source = OpenSource(sourceOptions);
  const FrameWork work = makeWork(source->Shape());
  const std::unique_ptr<FrameSink> sink = OpenSink(sinkOptions, source->Shape());
  // The processors that this process may use, not all that there are.
  const bool hasOneProcessor = av_cpu_count() == 1;
  std::exception_ptr reading;
  bool isStopped = false;
  std::string where;
  try {
    Worker worker(work, source->Shape().frames);
    reading = hasOneProcessor ? RunByTurns(*source, worker, *sink)
                              : RunOverlapped(*source, worker, *sink);
    isStopped = StopRequested();
    const bool isWhole =
        !reading && !isStopped && source->Damage().empty() && sink->Damage().empty();
    if (!isWhole && !IsNumberedName(arguments.output) &&
        IsSameFile(InputPath(arguments.input), arguments.output)) {
      where = "; INPUT is as it was" + AsFurther(sink->FinishAsPart());
    } else {
      sink->Finish();
      where = AsFurther(WhereText(arguments.output));
    }
  } catch (const Failure& failure) {
    throw Failure(failure.code, failure.what() + AsFurther(sink->FinishAsPart()));
  }
  if (reading) std::rethrow_exception(reading);
  if (isStopped) throw Failure(ExitCode::Stopped, "stopped" + where);
  const std::string& damage = source->Damage().empty() ? sink->Damage() : source->Damage();
  if (!damage.empty()) {
    const std::string name = arguments.input == "-" ? "standard input" : Quoted(arguments.input);
    throw Failure(ExitCode::BrokenInput, name + " is damaged: " + damage + where);
  }
}

}  // namespace kolm
