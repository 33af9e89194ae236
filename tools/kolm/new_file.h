// Files that come into being whole or not at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace kolm {

// For messages: the path in quotes.
std::string Quoted(const std::filesystem::path& path);

// Throws Failure: the output cannot be written because of `reason`.
[[noreturn]] void FailToWrite(const std::filesystem::path& path, const std::string& reason);

// Throws Failure if a NewFile of this path could not be made, so that no work is done in vain.
void CheckPlace(const std::filesystem::path& path, bool overwrite);

// Is written beside its path under another name and renamed at the end, so that there is the old
// file, or none, or the whole new one, even after a crash. Each call throws Failure.
class NewFile {
 public:
  NewFile(const std::filesystem::path& path, bool overwrite);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void Write(const void* bytes, size_t count);

  // As lseek does; returns the new position.
  int64_t Seek(int64_t offset, int whence);

  // Gives the file its name. Without this call nothing is left, but for KeepPart.
  void Finish();

  // Once a write has failed: keeps what was written under a name that tells it apart, and returns
  // that name; none if there is nothing to keep.
  std::filesystem::path KeepPart();

 private:
  std::filesystem::path path_, beside_;
  bool overwrite_;
  int file_;
};

}  // namespace kolm
