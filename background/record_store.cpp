// The store of ready-made backgrounds: a file of records without a header.
#include "background/background.h"
#include "background/file.h"
#include "platform/kernel_calls.h"

namespace kolm {
namespace {

constexpr char16_t kStorePath[] = u"\\SystemRoot\\system32\\KolmBg.img";
constexpr uint32_t kRecordBytes = sizeof(BackgroundRecord);

}  // namespace

int32_t LoadBackground(uint32_t recordIndex, uint8_t* record) {
  void* file = nullptr;
  const int32_t opened = OpenFile(kStorePath, &file);
  if (file == nullptr) return opened;

  int64_t endOfFile = 0;
  const int32_t queried = QueryEndOfFile(file, &endOfFile);
  // In 32 bits: indexes above 2331 wrap.
  const int64_t offset = static_cast<int32_t>(recordIndex * kRecordBytes - kRecordBytes);
  if (Succeeded(queried) && offset < endOfFile) {
    uint32_t transferred = 0;
    if (!Succeeded(ReadFile(file, offset, record, kRecordBytes, &transferred))) {
      DbgPrint("FileRead : Error");
    }
  }
  // Once the file is open only the close decides: callers have always been told so, unlike those of
  // the bitmap loader.
  return ZwClose(file);
}

}  // namespace kolm
