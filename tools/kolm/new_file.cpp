// Writing beside the path and renaming.
#include "tools/kolm/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "tools/kolm/failure.h"

namespace kolm {
namespace {

[[noreturn]] void FailForExisting(const std::filesystem::path& path) {
  throw Failure(ExitCode::OutputExists,
                Quoted(path) + " exists already; give -y to overwrite it, or another name");
}

}  // namespace

std::string Quoted(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

void FailToWrite(const std::filesystem::path& path, const std::string& reason) {
  throw Failure(ExitCode::UnwritableOutput,
                "cannot write " + Quoted(path) + ": " + reason +
                    "; expected the name of a file in a directory that can be written to");
}

void CheckPlace(const std::filesystem::path& path, bool overwrite) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (std::filesystem::is_directory(status)) FailToWrite(path, "it is a directory");
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    FailToWrite(path, "it is not a regular file");
  }
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  if (access(folder.c_str(), W_OK | X_OK) != 0) FailToWrite(path, std::strerror(errno));
  if (std::filesystem::exists(std::filesystem::symlink_status(path, error)) && !overwrite) {
    FailForExisting(path);
  }
}

NewFile::NewFile(const std::filesystem::path& path, bool overwrite)
    : path_(path), beside_(path), overwrite_(overwrite) {
  CheckPlace(path, overwrite);
  beside_.replace_filename("." + path.filename().string() + "." + std::to_string(getpid()));
  file_ = open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file_ < 0) FailToWrite(path, std::strerror(errno));
  // A file that is replaced keeps its permissions.
  struct stat old;
  if (stat(path.c_str(), &old) == 0) fchmod(file_, old.st_mode & 0777);
}

NewFile::~NewFile() {
  if (file_ >= 0) close(file_);
  if (!beside_.empty()) unlink(beside_.c_str());
}

void NewFile::Write(const void* bytes, size_t count) {
  const char* next = static_cast<const char*>(bytes);
  while (count > 0) {
    const ssize_t written = write(file_, next, count);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) FailToWrite(path_, std::strerror(errno));
    next += written;
    count -= static_cast<size_t>(written);
  }
}

int64_t NewFile::Seek(int64_t offset, int whence) {
  const off_t position = lseek(file_, offset, whence);
  if (position < 0) FailToWrite(path_, std::strerror(errno));
  return position;
}

std::filesystem::path NewFile::KeepPart() {
  struct stat status;
  if (beside_.empty() || stat(beside_.c_str(), &status) != 0 || status.st_size == 0) return {};
  std::filesystem::path part = path_;
  part.replace_filename(path_.stem().string() + ".part-" + std::to_string(getpid()) +
                        path_.extension().string());
  if (renameat2(AT_FDCWD, beside_.c_str(), AT_FDCWD, part.c_str(), RENAME_NOREPLACE) != 0) {
    return {};
  }
  beside_.clear();
  return part;
}

void NewFile::Finish() {
  // Without this a crash could leave the name on a file whose bytes never reached the disk.
  if (fsync(file_) != 0) FailToWrite(path_, std::strerror(errno));
  const int file = file_;
  file_ = -1;
  if (close(file) != 0) FailToWrite(path_, std::strerror(errno));
  if (renameat2(AT_FDCWD, beside_.c_str(), AT_FDCWD, path_.c_str(),
                overwrite_ ? 0 : RENAME_NOREPLACE) != 0) {
    if (errno == EEXIST) FailForExisting(path_);
    FailToWrite(path_, std::strerror(errno));
  }
  beside_.clear();
}

}  // namespace kolm
