// Files that come into being whole or not at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "tools/kolm/failure.h"

namespace kolm {

// For messages: the path in quotes.
std::string Quoted(const std::filesystem::path& path);

// Throws Failure: the output cannot be written because of `reason`.
[[noreturn]] void FailToWrite(
    const std::filesystem::path& path, const std::string& reason,
    const std::string& expected = "the name of a file in a directory that can be written to");

// With the reason and the remedy that an errno stands for.
Failure WriteFailure(const std::filesystem::path& path, int error);

// Of two names of one file, which may be yet to come.
bool IsSameFile(const std::filesystem::path& one, const std::filesystem::path& other);

// Throws Failure if a NewFile of this path could not be made, so that no work is done in vain.
void CheckPlace(const std::filesystem::path& path, bool overwrite);

// Is written beside its path under another name and renamed at the end, so that there is the old
// file, or none, or the whole new one, even after a crash. Behind a link the file that it leads to
// is replaced. Each call throws Failure.
class NewFile {
 public:
  NewFile(const std::filesystem::path& path, bool overwrite);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void Write(const void* bytes, size_t count);

  // As lseek does; returns the new position.
  int64_t Seek(int64_t offset, int whence);

  // Takes room on the disk for so many bytes from here on. Returns 0, or the errno that tells why
  // there is none. Where the file system does not know how, 0.
  int Reserve(int64_t count);

  // Gives the file its name. Without this call nothing is left, but for KeepPart.
  void Finish();

  // Deletes whatever is being written, as the process is about to end. A signal handler may call
  // this.
  static void RemoveUnfinished();

  // Instead of Finish: keeps what was written under a name that tells it apart, and returns that
  // name; none if there is nothing to keep.
  std::filesystem::path KeepPart();

 private:
  class UnfinishedName;
  std::filesystem::path path_, beside_;
  std::unique_ptr<UnfinishedName> unfinished_;
  bool overwrite_;
  int file_;
  int64_t reservedEnd_ = 0;
};

}  // namespace kolm
