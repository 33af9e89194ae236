// Conversion of records and the calls of the module's background exports.
#include "tools/kolm/background_record.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <opencv2/imgproc.hpp>
#include <string>
#include <system_error>

#include "tools/kolm/failure.h"
#include "tools/kolm/new_file.h"
#include "tools/kolm/packed_yuv.h"
#include "tools/kolm/progress.h"

namespace kolm {
namespace {

constexpr size_t kMargin = 1024;  // the module reads up to 641 bytes beyond a record
const cv::Size kRecordSize(KOLM_BACKGROUND_WIDTH, KOLM_BACKGROUND_HEIGHT);

// The largest part in the middle that has a record's shape.
cv::Mat MiddlePart(const cv::Mat& picture) {
  const double aspect = static_cast<double>(kRecordSize.width) / kRecordSize.height;
  const int width = std::clamp(cvRound(picture.rows * aspect), 1, picture.cols);
  const int height = std::clamp(cvRound(picture.cols / aspect), 1, picture.rows);
  return picture(cv::Rect((picture.cols - width) / 2, (picture.rows - height) / 2, width, height));
}

// Each axis on its own: the filter that reduces well enlarges badly, and the other way round.
cv::Mat Resized(const cv::Mat& picture) {
  const cv::Size reduced(std::min(picture.cols, kRecordSize.width),
                         std::min(picture.rows, kRecordSize.height));
  cv::Mat smaller, result;
  cv::resize(picture, smaller, reduced, 0, 0, cv::INTER_AREA);
  cv::resize(smaller, result, kRecordSize, 0, 0, cv::INTER_CUBIC);
  return result;
}

// The mean colours that sums of weighed colours stand for.
cv::Mat MeanColours(const cv::Mat& sums, const cv::Mat& weights, double leastWeight) {
  cv::Mat colours;
  cv::divide(sums, cv::Mat(cv::max(weights, leastWeight)), colours, 1, CV_8U);
  return colours;
}

cv::Mat ResizedWithAlpha(const cv::Mat& picture) {
  if (picture.size() == kRecordSize) return picture;
  // Colours count as far as they can be seen, lest those of transparent parts bleed into edges.
  // A trace of weight keeps colours where all is transparent.
  constexpr double kTrace = 1.0 / 4096;
  cv::Mat colour, alpha, weight, sums, weights;
  cv::cvtColor(picture, colour, cv::COLOR_BGRA2BGR);
  cv::extractChannel(picture, alpha, 3);
  alpha.convertTo(weight, CV_32F, 1.0 / 255, kTrace);
  cv::cvtColor(weight, weights, cv::COLOR_GRAY2BGR);
  cv::multiply(colour, weights, sums, 1, CV_32F);
  sums = Resized(sums);
  weights = Resized(weights);
  alpha = Resized(alpha);
  colour = MeanColours(sums, weights, kTrace / 2);
  // Visible colours go on a little into transparent parts, as the conversion to pixel pairs and the
  // module's scaling mix neighbours without a look at the alpha plane.
  cv::Mat nearSums, nearWeights;
  cv::GaussianBlur(sums, nearSums, {9, 9}, 0);
  cv::GaussianBlur(weights, nearWeights, {9, 9}, 0);
  MeanColours(nearSums, nearWeights, kTrace / 2).copyTo(colour, alpha == 0);
  cv::Mat result;
  cv::merge(std::vector{colour, alpha}, result);
  return result;
}

std::string StatusText(int32_t status) {
  struct Meaning {
    uint32_t status;
    const char* text;
  };
  constexpr Meaning kMeanings[] = {
      {0xC0000001, "it is not an uncompressed bitmap of 24 or 32 bits a pixel"},
      {0xC0000011, "it ends before its pixels begin"},
      {0xC0000022, "there is no permission to read it"},
      {0xC0000024, "it is not a regular file"},
      {0xC0000033, "its path has characters that the module's paths cannot have"},
      {0xC0000034, "there is no such file"},
      {0xC000003A, "there is no such directory"},
      {0xC0000043, "it is open elsewhere"},
      {0xC000009A, "there is not enough memory for it"},
      {0xC00000BA, "it is a directory"},
      {0xC0000106, "its path is too long"},
  };
  char number[16];
  std::snprintf(number, sizeof number, "0x%08X", static_cast<uint32_t>(status));
  for (const Meaning& meaning : kMeanings) {
    if (meaning.status == static_cast<uint32_t>(status)) {
      return std::string(meaning.text) + " (status " + number + ")";
    }
  }
  return std::string("the module returned status ") + number;
}

// A system folder of its own, in which a store has the place where the module looks for it.
class SystemFolder {
 public:
  explicit SystemFolder(const std::filesystem::path& store) {
    std::error_code error;
    const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    std::string pattern = (temporary / "kolm-XXXXXX").string();
    if (error || mkdtemp(pattern.data()) == nullptr) {
      const char* given = std::getenv("TMPDIR");
      throw Failure(ExitCode::UnwritableOutput,
                    "cannot make a temporary directory in " +
                        Quoted(error && given != nullptr ? given : temporary) + ": " +
                        (error ? error.message() : std::strerror(errno)) +
                        "; expected a directory for temporary files in the variable TMPDIR");
    }
    folder_ = pattern;
    std::filesystem::create_directory(folder_ / "system32");
    std::filesystem::create_symlink(std::filesystem::canonical(store),
                                    folder_ / "system32/KolmBg.img");
    setenv("KOLM_SYSTEM_ROOT", folder_.c_str(), 1);
  }
  ~SystemFolder() {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }
  SystemFolder(const SystemFolder&) = delete;
  SystemFolder& operator=(const SystemFolder&) = delete;

 private:
  std::filesystem::path folder_;
};

// A bitmap's numbers are stored with the lowest byte first.
uint32_t NumberAt(const uint8_t* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | uint32_t{bytes[3]} << 24;
}

// Tells of a bitmap, which the module has taken, that it ends before all its pixels.
void TellIfShort(const std::filesystem::path& bitmap) {
  uint8_t header[54] = {};  // of the file and of the picture
  std::ifstream file(bitmap, std::ios::binary);
  std::error_code error;
  const uint64_t length = std::filesystem::file_size(bitmap, error);
  if (error || !file.read(reinterpret_cast<char*>(header), sizeof header)) return;
  const uint32_t given = NumberAt(header + 10), clrUsed = NumberAt(header + 46);
  const uint32_t offset = given != 0 ? given : clrUsed * 4 + uint32_t{sizeof header};
  const uint64_t width = NumberAt(header + 18);
  const int64_t height = static_cast<int32_t>(NumberAt(header + 22));
  // Rows are filled up to groups of 4 bytes; from top to bottom their number is below zero.
  const uint64_t rowBytes = (width * header[28] + 31) / 32 * 4;
  const uint64_t whole = offset + rowBytes * static_cast<uint64_t>(std::abs(height));
  if (length >= whole) return;
  Tell(Quoted(bitmap) + " ends early: it has " + std::to_string(length) + " of " +
       std::to_string(whole) + " bytes; what is missing is shown as the module leaves it");
}

// In the kernel's form, which knows this machine's root as drive Z.
std::u16string KernelPath(const std::filesystem::path& path) {
  std::error_code error;
  std::filesystem::path whole = std::filesystem::absolute(path);
  const std::filesystem::path canonical = std::filesystem::weakly_canonical(whole, error);
  if (!error) whole = canonical;
  try {
    std::u16string name = u"\\??\\Z:" + whole.u16string();
    std::replace(name.begin(), name.end(), u'/', u'\\');
    return name;
  } catch (const std::system_error&) {
    throw Failure(ExitCode::UnreadablePicture,
                  "cannot read " + Quoted(path) +
                      ": its path is not UTF-8; expected one that is, to which it can be renamed");
  }
}

}  // namespace

std::vector<uint8_t> NewRecord() {
  return std::vector<uint8_t>(sizeof(BackgroundRecord) + kMargin);
}

std::vector<uint8_t> RecordFromPicture(const cv::Mat& picture, Fit fit) {
  const cv::Mat fitted = ResizedWithAlpha(fit == Fit::Crop ? MiddlePart(picture) : picture);
  cv::Mat colour;
  cv::cvtColor(fitted, colour, cv::COLOR_BGRA2BGR);
  const std::vector<uint8_t> frame = PackedFromPicture(colour);
  std::vector<uint8_t> record = NewRecord();
  std::copy(frame.begin(), frame.end(), record.begin() + offsetof(BackgroundRecord, frame));
  cv::extractChannel(fitted,
                     cv::Mat(kRecordSize, CV_8U, &record[offsetof(BackgroundRecord, alpha)]), 3);
  return record;
}

cv::Mat PictureFromRecord(const std::vector<uint8_t>& record) {
  const auto alphaBegin = record.begin() + offsetof(BackgroundRecord, alpha);
  const cv::Mat colour = PictureFromPacked({record.begin(), alphaBegin}, kRecordSize);
  cv::Mat1b alpha(kRecordSize);
  std::copy(alphaBegin, alphaBegin + kRecordSize.area(), alpha.begin());
  cv::Mat picture;
  cv::merge(std::vector<cv::Mat>{colour, alpha}, picture);
  return picture;
}

std::vector<uint8_t> LoadFromStore(const std::filesystem::path& store, uint32_t number) {
  const SystemFolder folder(store);
  std::vector<uint8_t> record = NewRecord();
  const int32_t status = Kolm_BG_LoadBackground(number, record.data());
  if (status < 0) {
    throw Failure(ExitCode::UnusableStore, "cannot read the store " + Quoted(store) + ": " +
                                               StatusText(status) +
                                               "; expected a file of records that you may read");
  }
  return record;
}

std::vector<uint8_t> LoadFromBitmap(const std::filesystem::path& bitmap) {
  std::vector<uint8_t> record = NewRecord();
  const int32_t status = Kolm_BG_LoadFromFile(KernelPath(bitmap).c_str(), record.data());
  if (status < 0) {
    throw Failure(ExitCode::UnreadablePicture,
                  "cannot read " + Quoted(bitmap) + ": " + StatusText(status) +
                      "; expected an uncompressed bitmap of 24 or 32 bits a pixel, such as "
                      "'ffmpeg -i picture.png -pix_fmt bgr24 frame.bmp' writes");
  }
  TellIfShort(bitmap);
  return record;
}

std::vector<uint8_t> ScaleRecord(const std::vector<uint8_t>& record, int width, int height) {
  std::vector<uint8_t> scaled(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
  Kolm_BG_ScaleBackground(record.data(), scaled.data(), static_cast<uint32_t>(width), height);
  return scaled;
}

Replacement ReplaceBackground(const cv::Mat& live, const std::vector<uint8_t>& record) {
  const size_t pixels = live.total();
  std::vector<uint8_t> scaled = ScaleRecord(record, live.cols, live.rows);
  std::vector<uint8_t> frame = PackedFromPicture(live);
  Kolm_BG_AlphaBlending(static_cast<uint32_t>(live.cols), static_cast<uint32_t>(live.rows),
                        scaled.data(), frame.data(), frame.data());
  Replacement replacement;
  replacement.result = PictureFromPacked(frame, live.size());
  replacement.alpha = cv::Mat(live.size(), CV_8U, &scaled[pixels * 2]).clone();
  scaled.resize(pixels * 2);
  replacement.background = PictureFromPacked(scaled, live.size());
  return replacement;
}

}  // namespace kolm
