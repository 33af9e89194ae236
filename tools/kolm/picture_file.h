// Picture files: reading any format that OpenCV knows, writing without ever leaving half a file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <string>

namespace kolm {

constexpr int kLargestSide = 32767;           // what the module's scaler holds
constexpr int64_t kMostPixels = 100'000'000;  // 300 MB of colour values

std::string SizeText(int width, int height);

// Each throws Failure if what is called `name` is no size that the tool works with.
void CheckLargest(const std::string& name, int width, int height);
void CheckSmallest(const std::string& name, int width, int height);

// 8-bit BGR of even width: a last odd column is cut off, which a line on standard error tells.
// Transparent parts are laid on white. Throws Failure.
cv::Mat ReadPicture(const std::filesystem::path& path);

// 8-bit BGRA of any size; opaque if the file has no alpha plane. Throws Failure.
cv::Mat ReadPictureWithAlpha(const std::filesystem::path& path);

// Whether WritePicture knows the name's extension. Throws Failure, as does the next.
bool IsPictureName(const std::filesystem::path& path);

// Whether a file is a picture by its name or its first bytes.
bool IsPicture(const std::filesystem::path& path);

// Throws Failure if WritePicture would refuse this path, so that no work is done in vain.
void CheckOutput(const std::filesystem::path& path, bool overwrite);

// The format is that of the name's extension. Throws Failure.
void WritePicture(const cv::Mat& picture, const std::filesystem::path& path, bool overwrite);

}  // namespace kolm
