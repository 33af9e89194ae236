// The record store of any length, any record of it.
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/fuzz_case.h"
#include "module/kolm.h"
#include "platform/host/host_kernel.h"

using namespace kolm;

namespace {

constexpr int64_t kRecordBytes = sizeof(BackgroundRecord);
constexpr uint8_t kUntouched = 0x5A;

[[noreturn]] void Fail(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::abort();
}

// \SystemRoot for as long as the process runs.
struct SystemRoot {
  SystemRoot() {
    std::string name = std::filesystem::temp_directory_path() / "kolm-fuzz-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) Fail("no folder " + name);
    folder = name;
    std::filesystem::create_directory(folder / "system32");
    setenv("KOLM_SYSTEM_ROOT", name.c_str(), 1);
    host::SetDebugSink([](const std::string&) {});
  }
  ~SystemRoot() { std::filesystem::remove_all(folder); }
  std::filesystem::path folder;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const SystemRoot root;
  FuzzedDataProvider input(data, size);
  const auto index = input.ConsumeBool() ? input.ConsumeIntegralInRange<uint32_t>(0, 4)
                                         : input.ConsumeIntegral<uint32_t>();
  // Around the ends of records, or anywhere.
  int64_t length = input.ConsumeIntegralInRange<int64_t>(0, 2) * kRecordBytes;
  length += input.ConsumeBool() ? input.ConsumeIntegralInRange<int64_t>(0, kRecordBytes)
                                : input.ConsumeIntegralInRange<int64_t>(-2, 2);
  fuzz::Block store(static_cast<size_t>(std::max<int64_t>(length, 0)), 0);
  const size_t misalignment = fuzz::PickMisalignment(input);
  fuzz::FillPicture(input, store);
  std::ofstream(root.folder / "system32" / "KolmBg.img", std::ios::binary)
      .write(reinterpret_cast<const char*>(store.data()),
             static_cast<std::streamsize>(store.size()));

  fuzz::Block record(static_cast<size_t>(kRecordBytes), misalignment);
  std::memset(record.data(), kUntouched, record.size());
  const int32_t status = Kolm_BG_LoadBackground(index, record.data());
  if (status != 0) Fail("status " + std::to_string(status));
  const std::string left = host::DescribePoolBlocks() + host::DescribeOpenHandles();
  if (!left.empty()) Fail("left behind:\n" + left);

  // Positions wrap in 32 bits.
  const int64_t start = static_cast<int32_t>((index - 1) * static_cast<uint32_t>(kRecordBytes));
  const int64_t end = static_cast<int64_t>(store.size());
  const int64_t there = start < 0 ? 0 : std::clamp<int64_t>(end - start, 0, kRecordBytes);
  if (there != 0 && std::memcmp(record.data(), store.data() + start, there) != 0) {
    Fail("record " + std::to_string(index) + " is not the store's");
  }
  if (!std::all_of(record.data() + there, record.data() + kRecordBytes,
                   [](uint8_t byte) { return byte == kUntouched; })) {
    Fail("bytes that were not read have changed");
  }
  return 0;
}
