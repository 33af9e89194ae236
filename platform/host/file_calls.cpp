// The kernel's file calls over real files: names, sharing, reads, and the handles now open.
#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wctype.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/host/broken_promise.h"
#include "platform/host/call_stack.h"
#include "platform/host/calling_level.h"
#include "platform/host/host_kernel.h"
#include "platform/host/stack_depth.h"
#include "platform/kernel_calls.h"

namespace kolm::host {
namespace {

enum : int32_t {
  kSuccess = 0,
  kUnsuccessful = static_cast<int32_t>(0xC0000001),
  kInvalidInformationClass = static_cast<int32_t>(0xC0000003),
  kInformationLengthMismatch = static_cast<int32_t>(0xC0000004),
  kInvalidHandle = static_cast<int32_t>(0xC0000008),
  kInvalidParameter = static_cast<int32_t>(0xC000000D),
  kInvalidDeviceRequest = static_cast<int32_t>(0xC0000010),
  kEndOfFile = static_cast<int32_t>(0xC0000011),
  kAccessDenied = static_cast<int32_t>(0xC0000022),
  kObjectTypeMismatch = static_cast<int32_t>(0xC0000024),
  kNameInvalid = static_cast<int32_t>(0xC0000033),
  kNameNotFound = static_cast<int32_t>(0xC0000034),
  kPathNotFound = static_cast<int32_t>(0xC000003A),
  kPathSyntaxBad = static_cast<int32_t>(0xC000003B),
  kSharingViolation = static_cast<int32_t>(0xC0000043),
  kFileIsADirectory = static_cast<int32_t>(0xC00000BA),
  kTooManyOpenedFiles = static_cast<int32_t>(0xC000011F),
  kIoDeviceError = static_cast<int32_t>(0xC0000185),
};

constexpr uint32_t kGenericReadSynchronize = 0x80000000 | 0x00100000;
constexpr uint32_t kShareRead = 1;
constexpr uint32_t kOpen = 1;
constexpr uint32_t kSynchronous = 0x20;
constexpr uint32_t kNonDirectory = 0x40;
constexpr uintptr_t kOpened = 1;
constexpr size_t kLongestComponent = 255;

// Handles look like the kernel's and are not used again, so that a closed one is told from an
// unknown one.
constexpr uintptr_t kFirstHandle = 0xFFFFFFFF80001000;
constexpr uintptr_t kHandleStep = 4;

struct OpenFile {
  int descriptor;
  dev_t device;
  ino_t inode;
  bool isFolder;
  uint32_t shareAccess;
  std::string name;
  CallStack openedAt;
};

// Never destroyed, like the pool.
struct Files {
  std::mutex mutex;
  std::map<uintptr_t, OpenFile> open;
  uintptr_t nextHandle = kFirstHandle;
};

Files& TheFiles() {
  static Files& files = *new Files;
  return files;
}

using Observer = std::function<void(const FileCall&)>;
using FailureDecision = std::function<int32_t(const FileCall&)>;

// Recursive, so that either may make file calls or replace itself.
struct Watch {
  std::recursive_mutex mutex;
  std::shared_ptr<const Observer> observer;
  std::shared_ptr<const FailureDecision> decide;
};

Watch& TheWatch() {
  static Watch& watch = *new Watch;
  return watch;
}

// Shows the call and returns the status that it shall fail with.
int32_t Announce(const FileCall& call) {
  Watch& watch = TheWatch();
  const std::lock_guard lock(watch.mutex);
  const std::shared_ptr<const Observer> observer = watch.observer;
  if (observer != nullptr) (*observer)(call);
  const std::shared_ptr<const FailureDecision> decide = watch.decide;
  return decide == nullptr ? kSuccess : (*decide)(call);
}

int32_t Report(IoStatusBlock* ioStatus, int32_t status, uintptr_t information) {
  ioStatus->status = status;
  ioStatus->information = information;
  return status;
}

int32_t StatusOf(int error) {
  switch (error) {
    case ENOENT:
    case ENAMETOOLONG:  // here, though not on Windows
      return kNameNotFound;
    case ENOTDIR:
      return kPathNotFound;
    case EACCES:
    case EPERM:
      return kAccessDenied;
    case EMFILE:
    case ENFILE:
      return kTooManyOpenedFiles;
    case EIO:
      return kIoDeviceError;
    default:
      return kUnsuccessful;
  }
}

// ---- Names ----

// Unit by unit, as Windows compares names.
bool EqualButForCase(std::u16string_view a, std::u16string_view b) {
  static const locale_t characters = [] {
    const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return unicode != nullptr ? unicode : newlocale(LC_CTYPE_MASK, "C", nullptr);
  }();
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char16_t left, char16_t right) {
    return left == right || towupper_l(left, characters) == towupper_l(right, characters);
  });
}

bool IsValidComponent(std::u16string_view component) {
  return !component.empty() && component.size() <= kLongestComponent && component != u"." &&
         component != u".." &&
         std::none_of(component.begin(), component.end(), [](char16_t character) {
           return character < u' ' ||
                  std::u16string_view(u"\"*/:<>?|").find(character) != std::u16string_view::npos;
         });
}

// Empty for what is no UTF-16.
std::filesystem::path ToPath(std::u16string_view name) {
  try {
    return std::filesystem::path(name);
  } catch (const std::system_error&) {
    return {};
  }
}

// Empty for what is no UTF-8.
std::u16string ToName(const std::filesystem::path& path) {
  try {
    return path.u16string();
  } catch (const std::system_error&) {
    return {};
  }
}

// Appends to *path the entry that `component` names: that of this very name, or else one that
// differs in case.
int32_t Descend(std::u16string_view component, std::filesystem::path* path) {
  const std::filesystem::path name = ToPath(component);
  if (!IsValidComponent(component) || name.empty()) return kNameInvalid;
  struct stat found;
  if (stat((*path / name).c_str(), &found) == 0) {
    *path /= name;
    return kSuccess;
  }
  if (errno != ENOENT) return StatusOf(errno);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(*path, error), end; !error && entry != end;
       entry.increment(error)) {
    if (EqualButForCase(ToName(entry->path().filename()), component)) {
      *path = entry->path();
      return kSuccess;
    }
  }
  // A link that leads nowhere is no folder.
  if (error == std::errc::no_such_file_or_directory) return kPathNotFound;
  return error ? StatusOf(error.value()) : int32_t{kNameNotFound};
}

bool IsFolder(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::is_directory(path, error);
}

// Takes `prefix` off the front of *name.
bool TakePrefix(std::u16string_view prefix, std::u16string_view* name) {
  if (!EqualButForCase(name->substr(0, prefix.size()), prefix)) return false;
  name->remove_prefix(prefix.size());
  return true;
}

// Finds the file or folder that a kernel name means.
int32_t Resolve(std::u16string_view name, std::filesystem::path* path) {
  if (!name.starts_with(u'\\')) return kPathSyntaxBad;
  if (TakePrefix(u"\\SystemRoot\\", &name)) {
    const char* const root = std::getenv("KOLM_SYSTEM_ROOT");
    if (root == nullptr || !IsFolder(root)) return kPathNotFound;
    *path = root;
  } else if (TakePrefix(u"\\??\\Z:\\", &name)) {
    *path = "/";
  } else {
    return kPathNotFound;
  }
  while (!name.empty()) {
    const size_t length = std::min(name.find(u'\\'), name.size());
    const int32_t status = Descend(name.substr(0, length), path);
    const bool isLast = name.size() - length <= 1;
    if (status != kSuccess) {
      return status == kNameNotFound && !isLast ? int32_t{kPathNotFound} : status;
    }
    const bool wantsFolder = length != name.size();
    if (wantsFolder && isLast && !IsFolder(*path)) return kNameInvalid;
    name.remove_prefix(std::min(length + 1, name.size()));
  }
  return kSuccess;
}

// ---- Calls ----

void DemandCreateArguments(const FileCall& call) {
  if (call.desiredAccess != kGenericReadSynchronize ||
      (call.createOptions & ~kNonDirectory) != kSynchronous || call.createDisposition != kOpen) {
    BrokenPromise("ZwCreateFile: access 0x%x, disposition %u, options 0x%x: not to be had here",
                  call.desiredAccess, call.createDisposition, call.createOptions);
  }
  if (call.rootDirectory != nullptr || call.eaBuffer != nullptr || call.eaLength != 0) {
    BrokenPromise("ZwCreateFile: root directory %p, extended attributes %p, %u bytes: not here",
                  call.rootDirectory, call.eaBuffer, call.eaLength);
  }
}

// Takes over the descriptor if the result is 0.
int32_t Register(const FileCall& call, int descriptor, const CallStack& openedAt, void** handle) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return StatusOf(errno);
  const bool isFolder = S_ISDIR(status.st_mode);
  if (isFolder && (call.createOptions & kNonDirectory) != 0) return kFileIsADirectory;
  // The system asks no permission of root, so the bits are asked here.
  if ((status.st_mode & S_IRUSR) == 0) return kAccessDenied;
  if (!isFolder && !S_ISREG(status.st_mode)) return kObjectTypeMismatch;
  Files& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  for (const auto& [other, file] : files.open) {
    if (file.device == status.st_dev && file.inode == status.st_ino &&
        (file.shareAccess & call.shareAccess & kShareRead) == 0) {
      return kSharingViolation;
    }
  }
  files.open.emplace(files.nextHandle, OpenFile{descriptor, status.st_dev, status.st_ino, isFolder,
                                                call.shareAccess, ToPath(call.fileName), openedAt});
  *handle = reinterpret_cast<void*>(files.nextHandle);
  files.nextHandle += kHandleStep;
  return kSuccess;
}

int32_t Open(const FileCall& call, const CallStack& openedAt, void** handle) {
  if (call.objectLength != sizeof(ObjectAttributes)) return kInvalidParameter;
  DemandCreateArguments(call);
  if (call.nameLength % sizeof(char16_t) != 0) return kNameInvalid;
  std::filesystem::path path;
  int32_t status = Resolve(call.fileName, &path);
  if (status != kSuccess) return status;
  // Not blocking, for a pipe without a writer.
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return StatusOf(errno);
  status = Register(call, descriptor, openedAt, handle);
  if (status != kSuccess) close(descriptor);
  return status;
}

[[gnu::noinline]] int32_t Create(void** file, uint32_t desiredAccess,
                                 const ObjectAttributes* objectAttributes, IoStatusBlock* ioStatus,
                                 const int64_t* allocationSize, uint32_t fileAttributes,
                                 uint32_t shareAccess, uint32_t createDisposition,
                                 uint32_t createOptions, void* eaBuffer, uint32_t eaLength) {
  DemandLevel(kPassiveLevel, "ZwCreateFile");
  const CountedString& name = *objectAttributes->objectName;
  FileCall call;
  call.name = "ZwCreateFile";
  call.handle = *file;
  call.desiredAccess = desiredAccess;
  call.objectLength = objectAttributes->length;
  call.rootDirectory = objectAttributes->rootDirectory;
  call.objectAttributes = objectAttributes->attributes;
  call.securityDescriptor = objectAttributes->securityDescriptor;
  call.securityQualityOfService = objectAttributes->securityQualityOfService;
  // By bytes: the caller's string need not be aligned.
  call.fileName.resize(name.length / sizeof(char16_t));
  std::copy_n(reinterpret_cast<const char*>(name.buffer), call.fileName.size() * sizeof(char16_t),
              reinterpret_cast<char*>(call.fileName.data()));
  call.nameLength = name.length;
  call.nameMaximumLength = name.maximumLength;
  call.hasAllocationSize = allocationSize != nullptr;
  call.fileAttributes = fileAttributes;
  call.shareAccess = shareAccess;
  call.createDisposition = createDisposition;
  call.createOptions = createOptions;
  call.eaBuffer = eaBuffer;
  call.eaLength = eaLength;
  int32_t status = Announce(call);
  if (status == kSuccess) status = Open(call, CaptureCallStack(), file);
  return Report(ioStatus, status, status == kSuccess ? kOpened : 0);
}

// The caller holds the mutex. Null for what is no open handle.
OpenFile* Find(Files* files, void* handle) {
  const auto found = files->open.find(reinterpret_cast<uintptr_t>(handle));
  return found == files->open.end() ? nullptr : &found->second;
}

int32_t FillInformation(const FileCall& call, void* information, uintptr_t* bytes) {
  if (call.informationClass != kFileStandardInformation) return kInvalidInformationClass;
  if (call.length < sizeof(FileStandardInformation)) return kInformationLengthMismatch;
  Files& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  const OpenFile* const file = Find(&files, call.handle);
  if (file == nullptr) return kInvalidHandle;
  struct stat status;
  if (fstat(file->descriptor, &status) != 0) return StatusOf(errno);
  *static_cast<FileStandardInformation*>(information) = {
      .allocationSize = file->isFolder ? 0 : int64_t{status.st_blocks} * 512,
      .endOfFile = file->isFolder ? 0 : int64_t{status.st_size},
      .numberOfLinks = static_cast<uint32_t>(status.st_nlink),
      .deletePending = 0,
      .directory = file->isFolder,
  };
  *bytes = sizeof(FileStandardInformation);
  return kSuccess;
}

[[gnu::noinline]] int32_t Query(void* handle, IoStatusBlock* ioStatus, void* information,
                                uint32_t length, int32_t informationClass) {
  DemandLevel(kPassiveLevel, "ZwQueryInformationFile");
  const uint8_t* const bytes = static_cast<const uint8_t*>(information);
  FileCall call;
  call.name = "ZwQueryInformationFile";
  call.handle = handle;
  call.buffer = information;
  call.length = length;
  call.informationClass = informationClass;
  call.informationZeroed =
      std::all_of(bytes, bytes + length, [](uint8_t byte) { return byte == 0; });
  uintptr_t filled = 0;
  int32_t status = Announce(call);
  if (status == kSuccess) status = FillInformation(call, information, &filled);
  return Report(ioStatus, status, filled);
}

int32_t ReadBytes(const FileCall& call, void* buffer, uintptr_t* transferred) {
  Files& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  const OpenFile* const file = Find(&files, call.handle);
  if (file == nullptr) return kInvalidHandle;
  if (call.event != nullptr || call.apcRoutine != nullptr || call.apcContext != nullptr ||
      !call.offset.has_value() || call.hasKey) {
    BrokenPromise("ZwReadFile: event, routine, context, key or no offset: not to be had here");
  }
  if (*call.offset < 0) return kInvalidParameter;
  if (file->isFolder) return kInvalidDeviceRequest;
  struct stat status;
  if (fstat(file->descriptor, &status) != 0) return StatusOf(errno);
  if (call.length == 0) return kSuccess;
  if (*call.offset >= status.st_size) return kEndOfFile;
  // Less than the system's largest offset, which it would refuse to pass.
  const size_t wanted = std::min<int64_t>(call.length, status.st_size - *call.offset);
  while (*transferred < wanted) {
    const ssize_t read =
        pread(file->descriptor, static_cast<uint8_t*>(buffer) + *transferred, wanted - *transferred,
              *call.offset + static_cast<int64_t>(*transferred));
    if (read == 0) break;
    if (read > 0) {
      *transferred += read;
    } else if (errno == EFAULT) {
      BrokenPromise("ZwReadFile: %zu bytes do not fit at %p", wanted, buffer);
    } else if (errno != EINTR) {
      return StatusOf(errno);
    }
  }
  return *transferred == 0 ? kEndOfFile : kSuccess;
}

[[gnu::noinline]] int32_t Read(void* handle, void* event, void* apcRoutine, void* apcContext,
                               IoStatusBlock* ioStatus, void* buffer, uint32_t length,
                               const int64_t* byteOffset, const uint32_t* key) {
  DemandLevel(kPassiveLevel, "ZwReadFile");
  FileCall call;
  call.name = "ZwReadFile";
  call.handle = handle;
  call.event = event;
  call.apcRoutine = apcRoutine;
  call.apcContext = apcContext;
  call.buffer = buffer;
  call.length = length;
  if (byteOffset != nullptr) call.offset = *byteOffset;
  call.hasKey = key != nullptr;
  uintptr_t transferred = 0;
  int32_t status = Announce(call);
  if (status == kSuccess) status = ReadBytes(call, buffer, &transferred);
  return Report(ioStatus, status, transferred);
}

[[gnu::noinline]] int32_t Close(void* handle) {
  DemandLevel(kPassiveLevel, "ZwClose");
  FileCall call;
  call.name = "ZwClose";
  call.handle = handle;
  const int32_t failure = Announce(call);
  if (failure != kSuccess) return failure;
  Files& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  const OpenFile* const file = Find(&files, handle);
  if (file == nullptr) {
    const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
    if (value >= kFirstHandle && value < files.nextHandle && value % kHandleStep == 0) {
      BrokenPromise("ZwClose: handle %p closed twice", handle);
    }
    return kInvalidHandle;
  }
  close(file->descriptor);
  files.open.erase(reinterpret_cast<uintptr_t>(handle));
  return kSuccess;
}

}  // namespace

size_t OpenHandles() {
  Files& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  return files.open.size();
}

std::string DescribeOpenHandles() {
  Files& files = TheFiles();
  const std::lock_guard lock(files.mutex);
  std::string text;
  for (const auto& [handle, file] : files.open) {
    text += "file " + file.name + ", opened at\n" + DescribeCallStack(file.openedAt);
  }
  return text;
}

void SetFileCallObserver(std::function<void(const FileCall&)> observer) {
  Watch& watch = TheWatch();
  const std::lock_guard lock(watch.mutex);
  watch.observer =
      observer == nullptr ? nullptr : std::make_shared<const Observer>(std::move(observer));
}

void SetFileFailure(std::function<int32_t(const FileCall&)> decide) {
  Watch& watch = TheWatch();
  const std::lock_guard lock(watch.mutex);
  watch.decide =
      decide == nullptr ? nullptr : std::make_shared<const FailureDecision>(std::move(decide));
}

}  // namespace kolm::host

int32_t ZwCreateFile(void** file, uint32_t desiredAccess, const ObjectAttributes* objectAttributes,
                     IoStatusBlock* ioStatus, const int64_t* allocationSize,
                     uint32_t fileAttributes, uint32_t shareAccess, uint32_t createDisposition,
                     uint32_t createOptions, void* eaBuffer, uint32_t eaLength) {
  const kolm::host::HostStackUse hidden;
  return kolm::host::Create(file, desiredAccess, objectAttributes, ioStatus, allocationSize,
                            fileAttributes, shareAccess, createDisposition, createOptions, eaBuffer,
                            eaLength);
}

int32_t ZwQueryInformationFile(void* file, IoStatusBlock* ioStatus, void* information,
                               uint32_t length, int32_t informationClass) {
  const kolm::host::HostStackUse hidden;
  return kolm::host::Query(file, ioStatus, information, length, informationClass);
}

int32_t ZwReadFile(void* file, void* event, void* apcRoutine, void* apcContext,
                   IoStatusBlock* ioStatus, void* buffer, uint32_t length,
                   const int64_t* byteOffset, const uint32_t* key) {
  const kolm::host::HostStackUse hidden;
  return kolm::host::Read(file, event, apcRoutine, apcContext, ioStatus, buffer, length, byteOffset,
                          key);
}

int32_t ZwClose(void* handle) {
  const kolm::host::HostStackUse hidden;
  return kolm::host::Close(handle);
}
