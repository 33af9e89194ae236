// One mapping per buffer: an unreadable page, whole pages with data and canary, an unreadable page.
#include "tests/guarded_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace kolm {
namespace {

constexpr uint8_t kCanary = 0xC5;

size_t PageBytes() {
  static const size_t bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return bytes;
}

void Protect(uint8_t* address, size_t bytes, int protection) {
  if (bytes != 0 && mprotect(address, bytes, protection) != 0) {
    throw std::system_error(errno, std::generic_category(), "mprotect");
  }
}

}  // namespace

GuardedBuffer::GuardedBuffer(size_t bytes, Flush flush) : bytes_(bytes) {
  const size_t page = PageBytes();
  const size_t inner = (bytes + page - 1) / page * page;
  mappedBytes_ = inner + 2 * page;
  void* mapping = mmap(nullptr, mappedBytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
  mapping_ = static_cast<uint8_t*>(mapping);
  uint8_t* pages = mapping_ + page;
  Protect(pages, inner, PROT_READ | PROT_WRITE);
  canaryBytes_ = inner - bytes;
  data_ = flush == Flush::End ? pages + canaryBytes_ : pages;
  canary_ = flush == Flush::End ? pages : pages + bytes;
  if (canaryBytes_ != 0) std::memset(canary_, kCanary, canaryBytes_);
}

GuardedBuffer::~GuardedBuffer() { munmap(mapping_, mappedBytes_); }

void GuardedBuffer::MakeReadOnly() {
  const size_t page = PageBytes();
  Protect(mapping_ + page, mappedBytes_ - 2 * page, PROT_READ);
}

bool GuardedBuffer::CanaryIntact() const {
  return std::all_of(canary_, canary_ + canaryBytes_, [](uint8_t byte) { return byte == kCanary; });
}

}  // namespace kolm
