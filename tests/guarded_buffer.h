// Memory between two unreadable pages, for finding reads and writes out of bounds.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kolm {

class GuardedBuffer {
 public:
  // Which unreadable page the data touches. The gap that page granularity leaves on the other side
  // holds a canary.
  enum class Flush { End, Start };

  GuardedBuffer(size_t bytes, Flush flush);
  ~GuardedBuffer();
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  uint8_t* data() { return data_; }
  size_t size() const { return bytes_; }

  // From now on a write faults.
  void MakeReadOnly();

  // Whether the gap is as it was.
  bool CanaryIntact() const;

 private:
  size_t bytes_;
  size_t mappedBytes_;
  uint8_t* mapping_;
  uint8_t* data_;
  uint8_t* canary_;
  size_t canaryBytes_;
};

}  // namespace kolm
