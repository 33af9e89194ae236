// Output into a new file or a pipe.
#include "tools/kolm/byte_output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/kolm/failure.h"
#include "tools/kolm/new_file.h"

namespace kolm {
namespace {

class FileOutput : public ByteOutput {
 public:
  FileOutput(const std::filesystem::path& path, bool overwrite) : file_(path, overwrite) {}

  void Write(const void* bytes, size_t count) override { file_.Write(bytes, count); }
  bool CanSeek() const override { return true; }
  int64_t Seek(int64_t offset, int whence) override { return file_.Seek(offset, whence); }
  int Reserve(int64_t count) override { return file_.Reserve(count); }
  void Finish() override { file_.Finish(); }
  std::filesystem::path KeepPart() override { return file_.KeepPart(); }

 private:
  NewFile file_;
};

class StandardOutput : public ByteOutput {
 public:
  StandardOutput() {
    // Frames then need fewer turns of both sides. Refused for what is no pipe.
    constexpr int kPipeBytes = 1 << 20;
    fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kPipeBytes);
  }

  void Write(const void* bytes, size_t count) override {
    const char* next = static_cast<const char*>(bytes);
    while (count > 0) {
      const ssize_t written = write(STDOUT_FILENO, next, count);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0 && errno == EAGAIN) {
        pollfd waited = {STDOUT_FILENO, POLLOUT, 0};
        poll(&waited, 1, -1);
        continue;
      }
      if (written < 0) throw StandardOutputFailure(errno);
      next += written;
      count -= static_cast<size_t>(written);
    }
  }
  bool CanSeek() const override { return false; }
  int64_t Seek(int64_t, int) override { return -1; }
  int Reserve(int64_t) override { return 0; }
  void Finish() override {}
  std::filesystem::path KeepPart() override { return {}; }
};

}  // namespace

Failure StandardOutputFailure(int error) {
  if (error == EPIPE) {
    return {ExitCode::ClosedPipe,
            "nobody reads standard output any more; expected a program that reads it to the end"};
  }
  return {ExitCode::UnwritableOutput,
          std::string("cannot write to standard output: ") + std::strerror(error) +
              "; expected a program that reads it, or a file with room for it"};
}

std::unique_ptr<ByteOutput> OpenByteOutput(const std::filesystem::path& path, bool overwrite) {
  if (path == "-") return std::make_unique<StandardOutput>();
  return std::make_unique<FileOutput>(path, overwrite);
}

}  // namespace kolm
