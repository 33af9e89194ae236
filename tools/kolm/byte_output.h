// Where encoded or raw video goes: a new file, or standard output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "tools/kolm/failure.h"

namespace kolm {

// Each call throws Failure.
class ByteOutput {
 public:
  virtual ~ByteOutput() = default;

  virtual void Write(const void* bytes, size_t count) = 0;

  virtual bool CanSeek() const = 0;
  virtual int64_t Seek(int64_t offset, int whence) = 0;

  // As NewFile::Reserve.
  virtual int Reserve(int64_t count) = 0;

  virtual void Finish() = 0;

  // Instead of Finish: keeps what was written under another name and returns that name; none if
  // there is nothing to keep.
  virtual std::filesystem::path KeepPart() = 0;
};

// What an errno of a write to standard output stands for.
Failure StandardOutputFailure(int error);

// `path` may be "-" for standard output.
std::unique_ptr<ByteOutput> OpenByteOutput(const std::filesystem::path& path, bool overwrite);

}  // namespace kolm
