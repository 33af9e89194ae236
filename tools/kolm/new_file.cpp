// Writing beside the path and renaming.
#include "tools/kolm/new_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "tools/kolm/failure.h"

namespace kolm {
namespace {

// As long as what is added to it leaves the name one that file systems take.
constexpr size_t kLongestName = 200;

// Cut between letters of UTF-8.
std::string Shortened(const std::string& name) {
  if (name.size() <= kLongestName) return name;
  size_t size = kLongestName;
  while (size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0) == 0x80) --size;
  return name.substr(0, size);
}

// Gives a file a name that no file has; else errno tells why not, and is 0 otherwise.
bool RenameNew(const std::filesystem::path& from, const std::filesystem::path& to) {
  errno = 0;
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // Not every file system can do so in one step. Some of these know no links either.
  errno = 0;
  if (link(from.c_str(), to.c_str()) == 0) {
    unlink(from.c_str());
    errno = 0;
    return true;
  }
  if (errno == EEXIST) return false;
  struct stat status;
  if (lstat(to.c_str(), &status) == 0) {
    errno = EEXIST;
    return false;
  }
  errno = 0;
  return rename(from.c_str(), to.c_str()) == 0;
}

[[noreturn]] void FailForExisting(const std::filesystem::path& path) {
  throw Failure(ExitCode::OutputExists,
                Quoted(path) + " exists already; give -y to overwrite it, or another name");
}

}  // namespace

std::string Quoted(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

void FailToWrite(const std::filesystem::path& path, const std::string& reason,
                 const std::string& expected) {
  throw Failure(ExitCode::UnwritableOutput,
                "cannot write " + Quoted(path) + ": " + reason + "; expected " + expected);
}

Failure WriteFailure(const std::filesystem::path& path, int error) {
  const bool isFull = error == ENOSPC || error == EDQUOT || error == EFBIG;
  return {ExitCode::UnwritableOutput,
          "cannot write " + Quoted(path) + ": " + std::strerror(error) + "; expected " +
              (isFull ? "room for it: make some, or name a file on another disk"
                      : "the name of a file in a directory that can be written to")};
}

bool IsSameFile(const std::filesystem::path& one, const std::filesystem::path& other) {
  std::error_code error;
  if (std::filesystem::equivalent(one, other, error)) return true;
  const auto whole = [&](const std::filesystem::path& path) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
  };
  return !one.empty() && !other.empty() && whole(one) == whole(other);
}

void CheckPlace(const std::filesystem::path& path, bool overwrite) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (std::filesystem::is_directory(status)) FailToWrite(path, "it is a directory");
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    FailToWrite(path, "it is not a regular file",
                "the name of a file, or - with the standard output redirected to a pipe or device");
  }
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  if (access(folder.c_str(), W_OK | X_OK) != 0) throw WriteFailure(path, errno);
  if (std::filesystem::exists(std::filesystem::symlink_status(path, error)) && !overwrite) {
    FailForExisting(path);
  }
}

// Enters a name into the list of what RemoveUnfinished deletes.
class NewFile::UnfinishedName {
 public:
  explicit UnfinishedName(const std::filesystem::path& path) {
    const std::filesystem::path whole = std::filesystem::absolute(path);
    if (whole.native().size() >= sizeof Place::name) return;
    for (Place& place : places) {
      bool expected = false;
      if (!place.isTaken.compare_exchange_strong(expected, true)) continue;
      whole.native().copy(place.name, sizeof place.name);
      place.name[whole.native().size()] = '\0';
      place.isSet = true;
      place_ = &place;
      return;
    }
  }
  ~UnfinishedName() {
    if (place_ == nullptr) return;
    place_->isSet = false;
    place_->isTaken = false;
  }
  UnfinishedName(const UnfinishedName&) = delete;
  UnfinishedName& operator=(const UnfinishedName&) = delete;

  static void RemoveAll() {
    for (const Place& place : places) {
      if (place.isSet) unlink(place.name);
    }
  }

 private:
  // In memory that stays, as a signal may come at any time.
  struct Place {
    std::atomic<bool> isTaken, isSet;
    char name[4096];
  };
  static Place places[4];  // no command writes more at a time
  Place* place_ = nullptr;
};

NewFile::UnfinishedName::Place NewFile::UnfinishedName::places[4];

void NewFile::RemoveUnfinished() { UnfinishedName::RemoveAll(); }

NewFile::NewFile(const std::filesystem::path& path, bool overwrite)
    : path_(path), overwrite_(overwrite) {
  CheckPlace(path, overwrite);
  std::error_code error;
  if (std::filesystem::is_symlink(path, error)) {
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    if (!error) path_ = target;
  }
  // The number alone may be that of a process long gone, in a container for instance.
  const std::string start = "." + Shortened(path_.filename().string()) + ".";
  int number = getpid();
  do {
    beside_ = path_;
    beside_.replace_filename(start + std::to_string(number++));
    file_ = open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  } while (file_ < 0 && errno == EEXIST);
  if (file_ < 0) throw WriteFailure(path, errno);
  unfinished_ = std::make_unique<UnfinishedName>(beside_);
  // A file that is replaced keeps its permissions and, as far as we may give it away, its owner.
  struct stat old;
  if (stat(path_.c_str(), &old) == 0) {
    [[maybe_unused]] const int result = fchown(file_, old.st_uid, old.st_gid);
    fchmod(file_, old.st_mode & 0777);
  }
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
    if (written < 0) throw WriteFailure(path_, errno);
    next += written;
    count -= static_cast<size_t>(written);
  }
}

int64_t NewFile::Seek(int64_t offset, int whence) {
  const off_t position = lseek(file_, offset, whence);
  if (position < 0) throw WriteFailure(path_, errno);
  return position;
}

int NewFile::Reserve(int64_t count) {
  constexpr int64_t kStep = 4 << 20;  // one call of the system for many frames
  const int64_t begin = Seek(0, SEEK_CUR);
  rlimit limit;
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && static_cast<rlim_t>(begin + count) > limit.rlim_cur) {
    return EFBIG;
  }
  if (begin + count <= reservedEnd_) return 0;
  for (const int64_t size : {count + kStep, count}) {
    if (fallocate(file_, FALLOC_FL_KEEP_SIZE, begin, size) == 0) {
      reservedEnd_ = begin + size;
      return 0;
    }
  }
  return errno == ENOSPC || errno == EDQUOT || errno == EFBIG ? errno : 0;
}

std::filesystem::path NewFile::KeepPart() {
  struct stat status;
  if (beside_.empty() || stat(beside_.c_str(), &status) != 0 || status.st_size == 0) return {};
  // Gives back what Reserve took in excess, if it can.
  if (file_ >= 0 && reservedEnd_ > 0) {
    [[maybe_unused]] const int result = ftruncate(file_, status.st_size);
  }
  const std::string stem = Shortened(path_.stem().string());
  std::filesystem::path part = path_;
  int number = getpid();
  do {
    part.replace_filename(stem + ".part-" + std::to_string(number++) + path_.extension().string());
  } while (!RenameNew(beside_, part) && errno == EEXIST);
  if (errno != 0) return {};
  unfinished_.reset();
  beside_.clear();
  return part;
}

void NewFile::Finish() {
  if (reservedEnd_ > 0 && ftruncate(file_, Seek(0, SEEK_END)) != 0) {
    throw WriteFailure(path_, errno);
  }
  // Without this a crash could leave the name on a file whose bytes never reached the disk.
  if (fsync(file_) != 0) throw WriteFailure(path_, errno);
  const int file = file_;
  file_ = -1;
  if (close(file) != 0) throw WriteFailure(path_, errno);
  if (overwrite_ ? rename(beside_.c_str(), path_.c_str()) != 0 : !RenameNew(beside_, path_)) {
    if (errno == EEXIST) FailForExisting(path_);
    throw WriteFailure(path_, errno);
  }
  unfinished_.reset();
  beside_.clear();
}

}  // namespace kolm
