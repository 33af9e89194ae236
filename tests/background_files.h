// Files that the background loaders find, and what a load of them does.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "module/kolm.h"
#include "tests/reference_background.h"

namespace kolm {

constexpr size_t kRecordBytes = sizeof(BackgroundRecord);

// A folder that stands for \SystemRoot while it exists.
class SystemRoot {
 public:
  SystemRoot();
  ~SystemRoot();
  SystemRoot(const SystemRoot&) = delete;
  SystemRoot& operator=(const SystemRoot&) = delete;

  const std::filesystem::path& Folder() const { return folder_; }
  // Where the store is looked for.
  std::filesystem::path Store() const { return folder_ / "system32" / "KolmBg.img"; }
  // Where BitmapName points.
  std::filesystem::path Bitmap() const { return folder_ / "picture.bmp"; }
  static constexpr const KolmPathCharacter* kBitmapName = u"\\SystemRoot\\picture.bmp";

 private:
  std::filesystem::path folder_;
};

void WriteFile(const std::filesystem::path& path, const reference::Bytes& bytes);

// The fields of a bitmap file's headers; those that no reader needs are left out.
struct BitmapHeader {
  uint16_t type = 0x4D42;
  uint32_t pixelOffset = 54;
  uint32_t headerBytes = 40;
  int32_t width = 0, height = 0;
  uint16_t bitCount = 24;
  uint32_t compression = 0;
  uint32_t imageBytes = 0;
  uint32_t coloursUsed = 0;
};

// The 54 bytes.
reference::Bytes BitmapHeaders(const BitmapHeader& header);

// The whole file.
reference::Bytes BitmapFile(const BitmapHeader& header, const reference::Bytes& pixels);

using Load = std::function<int32_t(uint8_t* record)>;

// Calls `load` on a record of exactly its size that holds `before`; `lines` are all that it prints.
reference::Loaded RunLoad(const reference::Bytes& before, const Load& load);

// The exports, with the lines after their own. A test failure if that one is not right.
reference::Loaded RunLoadBitmap(const reference::Bytes& before,
                                const KolmPathCharacter* path = SystemRoot::kBitmapName);
reference::Loaded RunLoadRecord(const reference::Bytes& before, uint32_t index);

// Runs `run` for each instruction set, with pool blocks and record flush with either guard page.
// Returns how the first run that is not as expected differs or what it left behind, or an empty
// string.
std::string CompareLoads(const reference::Loaded& expected,
                         const std::function<reference::Loaded()>& run);

}  // namespace kolm
