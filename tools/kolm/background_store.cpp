// Reads and writes stores.
#include "tools/kolm/background_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>

#include "tools/kolm/failure.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/picture_file.h"

namespace kolm {
namespace {

constexpr uint64_t kRecordBytes = sizeof(BackgroundRecord);

// After record 2331 the offset's 32 bits run over.
static_assert(kMostRecords == 2331);

[[noreturn]] void FailToUse(const std::filesystem::path& path, const std::string& reason) {
  throw Failure(ExitCode::UnusableStore,
                "cannot use the store " + Quoted(path) + ": " + reason +
                    "; expected a file of 1 to " + std::to_string(kMostRecords) +
                    " whole records of " + std::to_string(kRecordBytes) +
                    " bytes, such as 'kolm store create' makes of pictures");
}

std::string Count(uint64_t records) {
  return std::to_string(records) + (records == 1 ? " record" : " records");
}

uint64_t Length(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) FailToUse(path, error.message());
  if (!std::filesystem::is_regular_file(status)) FailToUse(path, "it is not a regular file");
  const uint64_t length = std::filesystem::file_size(path, error);
  if (error) FailToUse(path, error.message());
  return length;
}

void CheckTail(const std::filesystem::path& path) {
  const uint64_t length = Length(path);
  if (length % kRecordBytes == 0) return;
  FailToUse(path, "behind " + Count(length / kRecordBytes) + " there is an odd tail of " +
                      std::to_string(length % kRecordBytes) + " bytes");
}

void CheckLength(const std::filesystem::path& path) {
  CheckTail(path);
  const uint64_t records = Length(path) / kRecordBytes;
  if (records > kMostRecords) {
    FailToUse(path, "it has " + Count(records) + "; the module reaches only " +
                        std::to_string(kMostRecords));
  }
}

void CheckRoom(const std::filesystem::path& path, uint64_t records) {
  if (records > kMostRecords) {
    throw Failure(ExitCode::NoSuchRecord, Quoted(path) + " would have " + Count(records) +
                                              "; the module reaches only " +
                                              std::to_string(kMostRecords));
  }
}

class StoreReader {
 public:
  explicit StoreReader(const std::filesystem::path& path)
      : path_(path), file_(path, std::ios::binary) {
    if (!file_) FailToUse(path, std::strerror(errno));
  }

  std::vector<uint8_t> Read(uint64_t index) {
    std::vector<uint8_t> record = NewRecord();
    file_.seekg(static_cast<std::streamoff>(index * kRecordBytes));
    if (!file_.read(reinterpret_cast<char*>(record.data()), kRecordBytes)) {
      FailToUse(path_, "record " + std::to_string(index + 1) + " cannot be read");
    }
    return record;
  }

 private:
  std::filesystem::path path_;
  std::ifstream file_;
};

// While one lives, no other process changes the store: a change puts a new file in its place, and
// of two at a time one would be lost.
class StoreLock {
 public:
  explicit StoreLock(const std::filesystem::path& path) {
    while (true) {
      file_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
      if (file_ < 0) FailToUse(path, std::strerror(errno));
      struct stat locked, named;
      while (flock(file_, LOCK_EX) != 0 && errno == EINTR) {
      }
      // Whoever had the lock may have put another file in its place.
      if (fstat(file_, &locked) == 0 && stat(path.c_str(), &named) == 0 &&
          locked.st_ino == named.st_ino && locked.st_dev == named.st_dev) {
        return;
      }
      close(file_);
    }
  }
  ~StoreLock() { close(file_); }
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

 private:
  int file_;
};

void WriteRecord(NewFile& file, const std::vector<uint8_t>& record) {
  file.Write(record.data(), kRecordBytes);
}

void WritePictures(NewFile& file, const PicturePaths& pictures, Fit fit) {
  for (const std::filesystem::path& picture : pictures) {
    WriteRecord(file, RecordFromPicture(ReadPictureWithAlpha(picture), fit));
  }
}

}  // namespace

void CreateStore(const std::filesystem::path& path, const PicturePaths& pictures, Fit fit,
                 bool overwrite) {
  CheckRoom(path, pictures.size());
  NewFile file(path, overwrite);
  WritePictures(file, pictures, fit);
  file.Finish();
}

void AppendToStore(const std::filesystem::path& path, const PicturePaths& pictures, Fit fit) {
  CheckLength(path);
  const StoreLock lock(path);
  const uint64_t records = Length(path) / kRecordBytes;
  CheckRoom(path, records + pictures.size());
  StoreReader old(path);
  NewFile file(path, true);
  for (uint64_t index = 0; index < records; ++index) WriteRecord(file, old.Read(index));
  WritePictures(file, pictures, fit);
  file.Finish();
}

void ReplaceInStore(const std::filesystem::path& path, uint32_t number,
                    const std::filesystem::path& picture, Fit fit) {
  CheckLength(path);
  const StoreLock lock(path);
  CheckRecord(path, number);
  const uint64_t records = Length(path) / kRecordBytes;
  StoreReader old(path);
  NewFile file(path, true);
  for (uint64_t index = 0; index < records; ++index) {
    if (index + 1 == number) {
      WritePictures(file, {picture}, fit);
    } else {
      WriteRecord(file, old.Read(index));
    }
  }
  file.Finish();
}

void ExtractFromStore(const std::filesystem::path& path, uint32_t number,
                      const std::filesystem::path& output, bool overwrite) {
  if (output.extension() != ".png") {
    FailToWrite(output,
                "a record is written as PNG, which keeps its alpha plane, in a file whose "
                "name ends in .png");
  }
  CheckOutput(output, overwrite);
  CheckRecord(path, number);
  WritePicture(PictureFromRecord(StoreReader(path).Read(number - 1)), output, overwrite);
}

void ListStore(const std::filesystem::path& path) {
  const uint64_t records = Length(path) / kRecordBytes;
  StoreReader store(path);
  std::cout << "record  mean colour  covers\n";
  for (uint64_t index = 0; index < records; ++index) {
    const cv::Scalar mean = cv::mean(PictureFromRecord(store.Read(index)));
    char line[64];
    std::snprintf(line, sizeof line, "%6u  #%02x%02x%02x      %5.1f %%\n",
                  static_cast<unsigned>(index + 1), static_cast<unsigned>(cvRound(mean[2])),
                  static_cast<unsigned>(cvRound(mean[1])), static_cast<unsigned>(cvRound(mean[0])),
                  mean[3] * 100 / 255);
    std::cout << line;
  }
  std::cout << std::flush;
  CheckLength(path);
}

void VerifyStore(const std::filesystem::path& path) {
  CheckLength(path);
  const uint64_t records = Length(path) / kRecordBytes;
  StoreReader store(path);
  for (uint64_t index = 0; index < records; ++index) store.Read(index);
  std::cout << path.string() << ": " << Count(records) << ", whole\n";
}

void CheckRecord(const std::filesystem::path& path, uint32_t number) {
  const uint64_t records = std::min(Length(path) / kRecordBytes, kMostRecords);
  if (number >= 1 && number <= records) return;
  throw Failure(
      ExitCode::NoSuchRecord,
      "there is no record " + std::to_string(number) + " in " + Quoted(path) +
          (number > kMostRecords ? ", as the module reaches only " + std::to_string(kMostRecords)
           : records == 0        ? ", which has no records; 'kolm store append' adds some"
                                 : "; expected a number from 1 to " + std::to_string(records)));
}

void CheckBackgrounds(const std::filesystem::path& path) {
  CheckTail(path);
  if (Length(path) == 0) FailToUse(path, "it is empty");
}

}  // namespace kolm
