// Looks at the outermost sizes only.
#include "tools/kolm/container_structure.h"

#include <cstdint>
#include <fstream>

namespace kolm {
namespace {

// A big-endian number of so many bytes; 0 at the end of the file.
uint64_t ReadNumber(std::ifstream& file, int bytes) {
  uint64_t number = 0;
  for (int i = 0; i < bytes; ++i) {
    number = number << 8 | static_cast<uint8_t>(file.get());
  }
  return file ? number : 0;
}

// A size of EBML: the leading zero bits of the first byte tell how many bytes follow. -1 stands for
// one that was not known when it was written.
int64_t ReadEbmlSize(std::ifstream& file) {
  const uint64_t first = ReadNumber(file, 1);
  int more = 0;
  while (more < 8 && (first & (0x80U >> more)) == 0) ++more;
  if (more == 8) return -1;
  const uint64_t bits = (first & (0x7FU >> more)) << (8 * more) | ReadNumber(file, more);
  return bits == (uint64_t{1} << (7 * (more + 1))) - 1 ? -1 : static_cast<int64_t>(bits);
}

bool IsWholeMatroska(std::ifstream& file, int64_t length) {
  constexpr uint64_t kSegment = 0x18538067;
  const int64_t header = ReadEbmlSize(file);
  if (header < 0 || header > length) return true;
  file.seekg(header, std::ios::cur);
  if (ReadNumber(file, 4) != kSegment) return true;
  const int64_t segment = ReadEbmlSize(file);
  return segment < 0 || segment <= length - file.tellg();
}

// Behind each tag stands its length.
bool IsWholeFlv(std::ifstream& file, int64_t length) {
  constexpr int kTagHeader = 11;
  file.seekg(length - 4);
  const auto tag = static_cast<int64_t>(ReadNumber(file, 4));
  if (tag < kTagHeader || tag > length - 4) return false;
  file.seekg(length - 4 - tag + 1);
  return static_cast<int64_t>(ReadNumber(file, 3)) + kTagHeader == tag;
}

}  // namespace

bool HasWholeStructure(const std::filesystem::path& path) {
  constexpr uint64_t kEbml = 0x1A45DFA3;
  std::ifstream file(path, std::ios::binary);
  file.seekg(0, std::ios::end);
  const int64_t length = file.tellg();
  file.seekg(0);
  const uint64_t start = ReadNumber(file, 4);
  if (start == kEbml) return IsWholeMatroska(file, length);
  if (start >> 8 == 0x464C56) return IsWholeFlv(file, length);
  return true;
}

}  // namespace kolm
