// Background replacement once more, one byte at a time, to compare the module's against.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/reference_scaling.h"

namespace kolm::reference {

constexpr size_t kRecordBytes = 921600;

// The output frame; the inputs hold the bytes of whole pixels and no more.
Bytes BlendBackground(uint32_t width, uint32_t height, const Bytes& background, const Bytes& live);

// What scaling makes of `destination`, width * height * 3 bytes. `record` holds a record and the
// readable bytes behind it; a read behind those throws.
Bytes ScaleBackground(const Bytes& record, uint32_t width, int32_t height, Bytes destination);

// Bytes behind a record that are read, with or without weight, when it is scaled.
size_t ReadableBehindRecord(uint32_t width, int32_t height);

// Bytes that `pixels` does not hold count as zero.
Bytes ResamplePicture(const Bytes& pixels, uint32_t stride, int32_t width, int32_t height,
                      int32_t pixelBytes);
Bytes ConvertPicture(const Bytes& pixels, int32_t pixelBytes, bool topDown);

// What a loader ends with; `lines` are those after its export's own.
struct Loaded {
  int32_t status;
  Bytes record;
  std::vector<std::string> lines;
};

// Both take the whole file and what is in the caller's record before. Pool blocks of more than 1
// GiB are not to be had, as on the host.
Loaded LoadBitmap(const Bytes& file, const Bytes& before);
Loaded LoadRecord(const Bytes& store, uint32_t index, const Bytes& before);

}  // namespace kolm::reference
