// Whether a container's file has all the bytes that it tells of.
#pragma once

#include <filesystem>

namespace kolm {

// Of Matroska and FLV files; true of those that tell nothing.
bool HasWholeStructure(const std::filesystem::path& path);

}  // namespace kolm
