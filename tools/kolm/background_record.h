// Background records: made from pictures, loaded by the module, laid over pictures.
#pragma once

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <vector>

#include "module/kolm.h"

namespace kolm {

enum class Fit { Crop, Stretch };

// A record's bytes, zeroed, and a margin behind them: when the module scales up it reads beyond the
// record.
std::vector<uint8_t> NewRecord();

// From an 8-bit BGRA picture of any size. Its alpha plane becomes the record's.
std::vector<uint8_t> RecordFromPicture(const cv::Mat& picture, Fit fit);

// 640 x 480 pixels, 8-bit BGRA.
cv::Mat PictureFromRecord(const std::vector<uint8_t>& record);

// Loads by Kolm_BG_LoadBackground. The store must have the record. Throws Failure.
std::vector<uint8_t> LoadFromStore(const std::filesystem::path& store, uint32_t number);

// Loads by Kolm_BG_LoadFromFile. Throws Failure.
std::vector<uint8_t> LoadFromBitmap(const std::filesystem::path& bitmap);

// By Kolm_BG_ScaleBackground: a packed frame, then its alpha plane.
std::vector<uint8_t> ScaleRecord(const std::vector<uint8_t>& record, int width, int height);

// A record scaled to a live picture's size, and the two blended.
struct Replacement {
  cv::Mat background, result;  // 8-bit BGR
  cv::Mat alpha;               // 8-bit
};

// `live` is 8-bit BGR of even width.
Replacement ReplaceBackground(const cv::Mat& live, const std::vector<uint8_t>& record);

}  // namespace kolm
