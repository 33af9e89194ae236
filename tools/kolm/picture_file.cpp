// Reads and writes picture files.
#include "tools/kolm/picture_file.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <cerrno>
#include <cstring>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "tools/kolm/failure.h"
#include "tools/kolm/library_messages.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/picture_codecs.h"
#include "tools/kolm/progress.h"

namespace kolm {
namespace {

constexpr size_t kLargestFile = size_t{512} << 20;

std::vector<uchar> ReadFile(const std::filesystem::path& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    throw Failure(ExitCode::UnreadablePicture,
                  "cannot read " + Quoted(path) + ": it is a directory; expected a picture file");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw Failure(
        ExitCode::UnreadablePicture,
        "cannot read " + Quoted(path) + ": " + std::strerror(errno) + "; expected a picture file");
  }
  std::vector<uchar> bytes;
  char block[1 << 16];
  while (file.read(block, sizeof block), file.gcount() > 0) {
    bytes.insert(bytes.end(), block, block + file.gcount());
    if (bytes.size() > kLargestFile) {
      throw Failure(ExitCode::PictureSize, Quoted(path) + " is larger than " +
                                               std::to_string(kLargestFile >> 20) +
                                               " MB, the largest picture file that is read");
    }
  }
  if (bytes.empty()) {
    throw Failure(ExitCode::UnreadablePicture,
                  Quoted(path) + " is empty; expected a picture file (PNG, JPEG, ...)");
  }
  return bytes;
}

// False for a JPEG file that lacks its end marker, the only sign that OpenCV's decoder has made up
// the rest of the picture.
bool HasEnd(const std::vector<uchar>& bytes) {
  const auto marker = [&](size_t at) { return bytes[at] << 8 | bytes[at + 1]; };
  if (bytes.size() < 4 || marker(0) != 0xFFD8) return true;
  // The headers up to the first scan may hold a whole small picture with an end of its own.
  size_t at = 2;
  while (at + 4 <= bytes.size() && marker(at) != 0xFFDA) {
    const bool isFill = marker(at) == 0xFFFF;
    at += isFill ? 1 : 2 + static_cast<size_t>(marker(at + 2));
  }
  for (; at + 2 <= bytes.size(); ++at) {
    if (marker(at) == 0xFFD9) return true;
  }
  return false;
}

[[noreturn]] void FailForSize(const std::string& name, const std::string& size) {
  throw Failure(ExitCode::PictureSize, name + " is too large: " + size + "; expected at most " +
                                           std::to_string(kLargestSide) + " pixels a side and " +
                                           std::to_string(kMostPixels / 1'000'000) +
                                           " million altogether");
}

cv::Mat Decode(const std::vector<uchar>& bytes, int flags, const std::filesystem::path& path) {
  const PictureCodecs& codecs = LoadPictureCodecs();
  try {
    const QuietLibraries quiet;
    return codecs.decode(bytes, flags);
  } catch (const cv::Exception& error) {
    // OpenCV refuses sizes of its own accord and names the limit that was broken.
    if (error.code == cv::Error::StsNoMem ||
        error.err.find("CV_IO_MAX_IMAGE") != std::string::npos) {
      FailForSize(Quoted(path), "it does not fit into memory");
    }
    return {};
  }
}

// Of an extension that libavformat writes into one file: no need to ask the picture codecs.
bool IsVideoName(const std::filesystem::path& path) {
  const AVOutputFormat* format = av_guess_format(nullptr, path.filename().c_str(), nullptr);
  return format != nullptr && format->video_codec != AV_CODEC_ID_NONE &&
         format->video_codec != AV_CODEC_ID_WEBP && (format->flags & AVFMT_NOFILE) == 0;
}

// Lays a BGRA picture on white.
cv::Mat OnWhite(const cv::Mat& picture) {
  cv::Mat colour, alpha, result;
  cv::cvtColor(picture, colour, cv::COLOR_BGRA2BGR);
  cv::extractChannel(picture, alpha, 3);
  cv::cvtColor(alpha, alpha, cv::COLOR_GRAY2BGR);
  const double opaque = picture.depth() == CV_16U ? 65535 : 255;
  cv::Mat shown, white;
  cv::multiply(colour, alpha, shown, 1 / opaque);
  cv::subtract(cv::Scalar::all(opaque), alpha, white);
  cv::add(shown, white, result);
  result.convertTo(result, CV_8U, 255 / opaque);
  return result;
}

// A picture that has been read: 8-bit BGR, and as it is in the file, which may have an alpha plane.
struct DecodedPicture {
  cv::Mat colour, unchanged;

  bool HasAlpha() const { return unchanged.channels() == 4 && unchanged.depth() <= CV_16U; }
};

DecodedPicture ReadAndDecode(const std::filesystem::path& path) {
  const std::vector<uchar> bytes = ReadFile(path);
  DecodedPicture picture;
  picture.colour = Decode(bytes, cv::IMREAD_COLOR, path);
  if (picture.colour.empty() || !HasEnd(bytes)) {
    throw Failure(ExitCode::UnreadablePicture,
                  Quoted(path) + " is not a whole picture of a known format; expected a PNG, " +
                      "JPEG, BMP, TIFF, WebP or PNM file");
  }
  CheckLargest(Quoted(path), picture.colour.cols, picture.colour.rows);
  // IMREAD_COLOR turns a camera's pictures upright but drops the alpha plane.
  picture.unchanged = Decode(bytes, cv::IMREAD_UNCHANGED, path);
  return picture;
}

}  // namespace

std::string SizeText(int width, int height) {
  return std::to_string(width) + " x " + std::to_string(height) + " pixels";
}

void CheckLargest(const std::string& name, int width, int height) {
  if (width > kLargestSide || height > kLargestSide || int64_t{width} * height > kMostPixels) {
    FailForSize(name, SizeText(width, height));
  }
}

void CheckSmallest(const std::string& name, int width, int height) {
  if (width < 2 || height < 1) {
    throw Failure(ExitCode::PictureSize, name + " is too small: " + SizeText(width, height) +
                                             "; expected a width of at least 2 pixels");
  }
}

cv::Mat ReadPicture(const std::filesystem::path& path) {
  const DecodedPicture decoded = ReadAndDecode(path);
  cv::Mat picture = decoded.HasAlpha() ? OnWhite(decoded.unchanged) : decoded.colour;
  CheckSmallest(Quoted(path), picture.cols, picture.rows);
  if (picture.cols % 2 != 0) {
    Tell(Quoted(path) + " is " + std::to_string(picture.cols) +
         " pixels wide; its last column is left out, as widths are even");
    picture = picture.colRange(0, picture.cols - 1).clone();
  }
  return picture;
}

cv::Mat ReadPictureWithAlpha(const std::filesystem::path& path) {
  const DecodedPicture decoded = ReadAndDecode(path);
  cv::Mat picture;
  if (decoded.HasAlpha()) {
    const double opaque = decoded.unchanged.depth() == CV_16U ? 65535 : 255;
    decoded.unchanged.convertTo(picture, CV_8U, 255 / opaque);
  } else {
    cv::cvtColor(decoded.colour, picture, cv::COLOR_BGR2BGRA);
  }
  return picture;
}

bool IsPictureName(const std::filesystem::path& path) {
  return path.has_extension() && !IsVideoName(path) &&
         LoadPictureCodecs().haveWriter(path.filename().string());
}

bool IsPicture(const std::filesystem::path& path) {
  if (IsVideoName(path)) return false;
  try {
    return IsPictureName(path) || LoadPictureCodecs().haveReader(path.string());
  } catch (const cv::Exception&) {
    return false;
  }
}

void CheckOutput(const std::filesystem::path& path, bool overwrite) {
  CheckPlace(path, true);
  if (!IsPictureName(path)) {
    FailToWrite(path, "no picture format has the extension '" + path.extension().string() + "'");
  }
  CheckPlace(path, overwrite);
}

void WritePicture(const cv::Mat& picture, const std::filesystem::path& path, bool overwrite) {
  CheckOutput(path, overwrite);
  std::vector<uchar> bytes;
  bool encoded = false;
  const PictureCodecs& codecs = LoadPictureCodecs();
  try {
    const QuietLibraries quiet;
    encoded = codecs.encode(path.extension().string(), picture, bytes, {});
  } catch (const cv::Exception&) {
  }
  if (!encoded) {
    FailToWrite(path,
                "the format does not take a picture of " + SizeText(picture.cols, picture.rows));
  }
  NewFile file(path, overwrite);
  file.Write(bytes.data(), bytes.size());
  file.Finish();
}

}  // namespace kolm
