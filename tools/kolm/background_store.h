// Stores: files of background records, one behind the other, without a header.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "tools/kolm/background_record.h"

namespace kolm {

// The module computes a record's place in 32 bits, which reach no further.
constexpr uint64_t kMostRecords = INT32_MAX / sizeof(BackgroundRecord) + 1;

using PicturePaths = std::vector<std::filesystem::path>;

// Each throws Failure. Those that write leave the old store, or none, or the whole new one.
void CreateStore(const std::filesystem::path& path, const PicturePaths& pictures, Fit fit,
                 bool overwrite);
void AppendToStore(const std::filesystem::path& path, const PicturePaths& pictures, Fit fit);
void ReplaceInStore(const std::filesystem::path& path, uint32_t number,
                    const std::filesystem::path& picture, Fit fit);
void ExtractFromStore(const std::filesystem::path& path, uint32_t number,
                      const std::filesystem::path& output, bool overwrite);
void ListStore(const std::filesystem::path& path);
void VerifyStore(const std::filesystem::path& path);

// Throws Failure if the store has no such whole record within the module's reach.
void CheckRecord(const std::filesystem::path& path, uint32_t number);

// Throws Failure if the store has no records, or an odd tail behind them.
void CheckBackgrounds(const std::filesystem::path& path);

}  // namespace kolm
