// The record lies flush with the same guard page as the pool's blocks.
#include "tests/background_files.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "platform/host/host_kernel.h"
#include "tests/guarded_buffer.h"
#include "tests/guarded_run.h"

namespace kolm {
namespace {

using reference::Bytes;
using reference::Loaded;

GuardedBuffer::Flush recordFlush = GuardedBuffer::Flush::End;

std::string Difference(const Loaded& expected, const Loaded& actual) {
  char text[160];
  if (actual.status != expected.status) {
    std::snprintf(text, sizeof text, "status 0x%X instead of 0x%X",
                  static_cast<uint32_t>(actual.status), static_cast<uint32_t>(expected.status));
    return text;
  }
  if (actual.lines != expected.lines) {
    std::string lines = "lines:";
    for (const std::string& line : actual.lines) lines += " [" + line + "]";
    lines += " instead of";
    for (const std::string& line : expected.lines) lines += " [" + line + "]";
    return lines;
  }
  const auto [wanted, got] =
      std::mismatch(expected.record.begin(), expected.record.end(), actual.record.begin());
  if (wanted == expected.record.end()) return "";
  std::snprintf(text, sizeof text, "record byte %td is %d instead of %d",
                wanted - expected.record.begin(), *got, *wanted);
  return text;
}

Loaded WithoutExportsLine(Loaded loaded, const std::string& line) {
  if (loaded.lines.empty() || loaded.lines.front() != line) {
    ADD_FAILURE() << "no line: " << line;
    return loaded;
  }
  loaded.lines.erase(loaded.lines.begin());
  return loaded;
}

}  // namespace

SystemRoot::SystemRoot() {
  std::string folder = testing::TempDir() + "kolm-system-root-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("no folder " + folder);
  folder_ = folder;
  std::filesystem::create_directory(folder_ / "system32");
  setenv("KOLM_SYSTEM_ROOT", folder.c_str(), 1);
}

SystemRoot::~SystemRoot() {
  unsetenv("KOLM_SYSTEM_ROOT");
  std::filesystem::remove_all(folder_);
}

void WriteFile(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

Bytes BitmapHeaders(const BitmapHeader& header) {
  Bytes bytes;
  const auto append = [&](uint32_t value, int count) {
    for (int i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
  };
  append(header.type, 2);
  append(header.pixelOffset + header.imageBytes, 4);
  append(0, 4);
  append(header.pixelOffset, 4);
  append(header.headerBytes, 4);
  append(static_cast<uint32_t>(header.width), 4);
  append(static_cast<uint32_t>(header.height), 4);
  append(1, 2);
  append(header.bitCount, 2);
  append(header.compression, 4);
  append(header.imageBytes, 4);
  append(2835, 4);
  append(2835, 4);
  append(header.coloursUsed, 4);
  append(0, 4);
  return bytes;
}

Bytes BitmapFile(const BitmapHeader& header, const Bytes& pixels) {
  Bytes file = BitmapHeaders(header);
  // Between the headers and the pixels stands what must not be taken for them.
  if (header.pixelOffset > file.size()) file.resize(header.pixelOffset, 0xEE);
  file.insert(file.end(), pixels.begin(), pixels.end());
  return file;
}

Loaded RunLoad(const Bytes& before, const Load& load) {
  GuardedBuffer record(kRecordBytes, recordFlush);
  std::copy(before.begin(), before.end(), record.data());
  Loaded loaded;
  host::SetDebugSink([&](const std::string& text) { loaded.lines.push_back(text); });
  loaded.status = load(record.data());
  host::SetDebugSink(nullptr);
  loaded.record.assign(record.data(), record.data() + record.size());
  EXPECT_TRUE(record.CanaryIntact());
  return loaded;
}

Loaded RunLoadBitmap(const Bytes& before, const KolmPathCharacter* path) {
  // A narrow read of the path ends at its first character's second byte.
  return WithoutExportsLine(
      RunLoad(before, [=](uint8_t* record) { return Kolm_BG_LoadFromFile(path, record); }),
      "Kolm: Kolm_BG_LoadFromFile, \\\n");
}

Loaded RunLoadRecord(const Bytes& before, uint32_t index) {
  return WithoutExportsLine(
      RunLoad(before, [=](uint8_t* record) { return Kolm_BG_LoadBackground(index, record); }),
      "Kolm: Kolm_BG_LoadBackground\n");
}

std::string CompareLoads(const Loaded& expected, const std::function<Loaded()>& run) {
  std::string wrong;
  for (const host::PoolGuard guard : {host::PoolGuard::Behind, host::PoolGuard::Before}) {
    const bool behind = guard == host::PoolGuard::Behind;
    host::SetPoolGuard(guard);
    recordFlush = behind ? GuardedBuffer::Flush::End : GuardedBuffer::Flush::Start;
    for (const InstructionSet set : InstructionSets()) {
      const HeldInstructionSet held(set);
      wrong = Difference(expected, run());
      if (wrong.empty()) wrong = host::DescribePoolBlocks();
      if (wrong.empty()) wrong = host::DescribeOpenHandles();
      if (!wrong.empty()) {
        wrong += std::string(" (") + Name(set) + ", guard page " + (behind ? "behind)" : "before)");
        break;
      }
    }
    if (!wrong.empty()) break;
  }
  host::SetPoolGuard(host::PoolGuard::None);
  recordFlush = GuardedBuffer::Flush::End;
  return wrong;
}

}  // namespace kolm
