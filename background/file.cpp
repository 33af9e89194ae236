// The file calls with the arguments that both loaders share.
#include "background/file.h"

#include <stddef.h>

#include "platform/kernel_calls.h"

namespace kolm {
namespace {

constexpr uint32_t kCaseInsensitiveKernelHandle = 0x40 | 0x200;
constexpr uint32_t kGenericReadSynchronize = 0x80000000 | 0x00100000;
constexpr uint32_t kFileAttributeNormal = 0x80;
constexpr uint32_t kNoSharing = 0;
constexpr uint32_t kFileOpen = 1;
constexpr uint32_t kSynchronousNonDirectory = 0x20 | 0x40;

constexpr size_t kLongestName = 0xFFFF / sizeof(char16_t) - 1;

}  // namespace

int32_t OpenFile(const char16_t* path, void** file) {
  *file = nullptr;
  size_t characters = 0;
  while (characters <= kLongestName && path[characters] != 0) ++characters;
  if (characters > kLongestName) {
    DbgPrint("FileOpen : Error");
    return kStatusNameTooLong;
  }
  const CountedString name = {
      .length = static_cast<uint16_t>(characters * sizeof(char16_t)),
      .maximumLength = static_cast<uint16_t>((characters + 1) * sizeof(char16_t)),
      .buffer = path,
  };
  const ObjectAttributes attributes = {
      .length = sizeof attributes,
      .rootDirectory = nullptr,
      .objectName = &name,
      .attributes = kCaseInsensitiveKernelHandle,
      .securityDescriptor = nullptr,
      .securityQualityOfService = nullptr,
  };
  IoStatusBlock ioStatus = {};
  const int32_t status = ZwCreateFile(file, kGenericReadSynchronize, &attributes, &ioStatus,
                                      nullptr, kFileAttributeNormal, kNoSharing, kFileOpen,
                                      kSynchronousNonDirectory, nullptr, 0);
  if (!Succeeded(status)) DbgPrint("FileOpen : Error");
  return status;
}

int32_t QueryEndOfFile(void* file, int64_t* endOfFile) {
  FileStandardInformation information = {};
  IoStatusBlock ioStatus = {};
  const int32_t status = ZwQueryInformationFile(file, &ioStatus, &information, sizeof information,
                                                kFileStandardInformation);
  *endOfFile = information.endOfFile;
  return status;
}

int32_t ReadFile(void* file, int64_t offset, void* buffer, uint32_t bytes, uint32_t* transferred) {
  IoStatusBlock ioStatus = {};
  const int32_t status =
      ZwReadFile(file, nullptr, nullptr, nullptr, &ioStatus, buffer, bytes, &offset, nullptr);
  const bool plausible = Succeeded(status) && ioStatus.information <= bytes;
  *transferred = plausible ? static_cast<uint32_t>(ioStatus.information) : 0;
  return status;
}

}  // namespace kolm
