// The bitmap loader over a file that is the whole input.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "fuzz/fuzz_case.h"
#include "module/kolm.h"
#include "platform/host/host_kernel.h"

using namespace kolm;

namespace {

constexpr uint8_t kUntouched = 0x5A;

[[noreturn]] void Fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::abort();
}

// The file exists in memory only, and has a name while the process runs.
struct InputFile {
  InputFile() : descriptor(memfd_create("bitmap", 0)) {
    if (descriptor < 0) Fail("no file in memory");
    for (const char character : "\\??\\Z:\\proc\\self\\fd\\" + std::to_string(descriptor)) {
      name += static_cast<char16_t>(character);
    }
    host::SetDebugSink([](const std::string&) {});
  }
  int descriptor;
  std::u16string name;
};

uint32_t LittleEndian(const uint8_t* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | uint32_t{bytes[3]} << 24;
}

// Blocks of more than 1 GiB are not to be had; smaller but large ones only take memory and time.
bool AsksForALargeBlock(const uint8_t* data, size_t size) {
  if (size < 38) return false;
  uint8_t header[54] = {};
  std::memcpy(header, data, std::min(size, sizeof header));
  uint32_t bytes = LittleEndian(header + 34);
  if (bytes == 0) {
    const uint32_t bits = (LittleEndian(header + 28) & 0xFFFF) * LittleEndian(header + 18) + 31;
    bytes =
        (static_cast<uint32_t>(static_cast<int32_t>(bits) >> 3) & ~3u) * LittleEndian(header + 22);
  }
  return bytes > 16u << 20 && bytes <= 1u << 30;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const InputFile file;
  if (AsksForALargeBlock(data, size)) return 0;
  if (ftruncate(file.descriptor, 0) != 0 ||
      pwrite(file.descriptor, data, size, 0) != static_cast<ssize_t>(size)) {
    Fail("cannot write the file");
  }

  int32_t previous = 1;
  fuzz::CompareForms(sizeof(BackgroundRecord), 0, size % 16, [&](uint8_t* record) {
    const int32_t status = Kolm_BG_LoadFromFile(file.name.c_str(), record);
    // Success, unsuccessful, no resources, end of file.
    const uint32_t allowed[] = {0, 0xC0000001, 0xC000009A, 0xC0000011};
    if (std::find(std::begin(allowed), std::end(allowed), static_cast<uint32_t>(status)) ==
        std::end(allowed)) {
      Fail("status " + std::to_string(status));
    }
    if (previous != 1 && status != previous) Fail("the forms' statuses differ");
    previous = status;
    if (status != 0 && !std::all_of(record, record + sizeof(BackgroundRecord),
                                    [](uint8_t byte) { return byte == kUntouched; })) {
      Fail("the record was touched");
    }
    const std::string left = host::DescribePoolBlocks() + host::DescribeOpenHandles();
    if (!left.empty()) Fail("left behind:\n" + left);
  });
  return 0;
}
