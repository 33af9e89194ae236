// Draws the sheets.
#include "tools/kolm/contact_sheet.h"

#include <algorithm>
#include <cstdio>
#include <opencv2/imgproc.hpp>
#include <string>

#include "tools/kolm/face_outlines.h"
#include "tools/kolm/packed_yuv.h"

namespace kolm {
namespace {

constexpr int kColumns = 5;
constexpr int kRows = 4;
constexpr int kLeastCellHeight = 120;
constexpr int kLabelHeight = 34;
constexpr int kGap = 20;
constexpr int kMargin = 28;
const cv::Scalar kPaper(34, 28, 25);
const cv::Scalar kCellGround(50, 42, 38);
const cv::Scalar kInk(240, 236, 232);
const cv::Scalar kFaintInk(176, 166, 158);

// Text with its left end at `left` and its baseline at `baseline`. Drawn large and reduced: the
// drawn fonts are made of lines that look ragged at their small sizes.
void DrawText(cv::Mat& sheet, const std::string& text, int left, int baseline, double height,
              const cv::Scalar& ink) {
  constexpr int kDetail = 4;
  const int font = cv::FONT_HERSHEY_DUPLEX;
  const int lineWidth = std::max(kDetail, static_cast<int>(height * kDetail / 9));
  const double scale =
      cv::getFontScaleFromHeight(font, static_cast<int>(height * kDetail), lineWidth);
  int descent = 0;
  const cv::Size size = cv::getTextSize(text, font, scale, lineWidth, &descent);
  const int ascent = size.height / kDetail + 2;
  const int lines = ascent + (descent + lineWidth) / kDetail + 1;
  const int columns = size.width / kDetail + 2;
  cv::Mat1b large(lines * kDetail, columns * kDetail, uchar{0}), cover;
  cv::putText(large, text, {kDetail, ascent * kDetail}, font, scale, 255, lineWidth, cv::LINE_AA);
  cv::resize(large, cover, {columns, lines}, 0, 0, cv::INTER_AREA);
  const cv::Rect wanted(left - 1, baseline - ascent, columns, lines);
  const cv::Rect area = wanted & cv::Rect({}, sheet.size());
  cover = cover(area - wanted.tl());
  for (int y = 0; y < area.height; ++y) {
    for (int x = 0; x < area.width; ++x) {
      auto& pixel = sheet.at<cv::Vec3b>(area.y + y, area.x + x);
      for (int channel = 0; channel < 3; ++channel) {
        pixel[channel] = cv::saturate_cast<uchar>(pixel[channel] + (ink[channel] - pixel[channel]) *
                                                                       cover(y, x) / 255);
      }
    }
  }
}

// Cells of one size in rows, each under its label.
class Sheet {
 public:
  // The uppermost `head` rows stay free.
  Sheet(int columns, int rows, cv::Size cell, int head = 0)
      : columns_(columns),
        cell_(cell),
        head_(head),
        sheet_(head + 2 * kMargin + rows * (kLabelHeight + cell.height + kGap) - kGap,
               2 * kMargin + columns * (cell.width + kGap) - kGap, CV_8UC3, kPaper) {}

  cv::Rect CellAt(int index) const {
    return {
        kMargin + index % columns_ * (cell_.width + kGap),
        head_ + kMargin + index / columns_ * (kLabelHeight + cell_.height + kGap) + kLabelHeight,
        cell_.width, cell_.height};
  }

  void Place(int index, const cv::Mat& picture, const std::string& label) {
    const cv::Rect cell = CellAt(index);
    DrawText(sheet_, label, cell.x, cell.y - 12, 12, kInk);
    sheet_(cell).setTo(kCellGround);
    const cv::Point corner =
        cell.tl() + cv::Point((cell.width - picture.cols) / 2, (cell.height - picture.rows) / 2);
    picture.copyTo(sheet_(cv::Rect(corner, picture.size())));
  }

  cv::Mat& Picture() { return sheet_; }

 private:
  int columns_;
  cv::Size cell_;
  int head_;
  cv::Mat sheet_;
};

std::string Label(const Effect& effect, uint32_t parameter) {
  const std::string label = std::to_string(effect.id) + " " + effect.title;
  return effect.HasParameter() ? label + " (" + std::to_string(parameter) + ")" : label;
}

// Drawn twice as large and reduced, since colours lie in pairs of pixels.
cv::Mat WithOutlines(const cv::Mat& picture, const FaceView& view) {
  constexpr int kDetail = 2;
  cv::Mat large;
  cv::resize(picture, large, {}, kDetail, kDetail, cv::INTER_NEAREST);
  std::vector<uint8_t> frame = PackedFromPicture(large);
  DrawOutlines(frame.data(), large.cols, large.rows, Scaled(view, kDetail), 2 * kDetail);
  cv::Mat reduced;
  cv::resize(PictureFromPacked(frame, large.size()), reduced, picture.size(), 0, 0, cv::INTER_AREA);
  return reduced;
}

// What each outline means, in a row of samples from `left` on.
void DrawTrackLegend(cv::Mat& sheet, int left, int middle) {
  struct Entry {
    const char* text;
    int width;
    FaceView view;
  };
  constexpr int kSampleWidth = 76, kSampleHeight = 44;
  const Box whole = {0, 0, kSampleWidth, kSampleHeight}, outside = {-99, -99, 999, 999};
  const Entry entries[] = {{"Shown: what the frame below enlarges", 520, {{}, outside, whole}},
                           {"Target: where the crop is moving to", 500, {{}, whole, outside}},
                           {"Faces found, as one box with a margin", 0, {whole, outside, outside}}};
  for (const Entry& entry : entries) {
    const cv::Mat ground(kSampleHeight, kSampleWidth, CV_8UC3, cv::Scalar(96, 84, 78));
    WithOutlines(ground, entry.view)
        .copyTo(sheet(cv::Rect(left, middle - kSampleHeight / 2, kSampleWidth, kSampleHeight)));
    DrawText(sheet, entry.text, left + kSampleWidth + 14, middle + 6, 13, kInk);
    left += entry.width;
  }
}

}  // namespace

cv::Mat ReduceToCell(const cv::Mat& picture, int cellWidth) {
  const double mostHeight = cellWidth * 1.5;
  const double scale =
      std::min({1.0, static_cast<double>(cellWidth) / picture.cols, mostHeight / picture.rows});
  // Widths are even.
  const int width = std::max(2, cvRound(picture.cols * scale) & ~1);
  const int height = std::max(1, cvRound(picture.rows * scale));
  if (width == picture.cols && height == picture.rows) return picture;
  cv::Mat reduced;
  cv::resize(picture, reduced, {width, height}, 0, 0, cv::INTER_AREA);
  return reduced;
}

std::vector<cv::Mat> ApplyAllEffects(const cv::Mat& picture, const EffectList& effects) {
  std::vector<cv::Mat> results;
  for (const Effect& effect : effects) {
    results.push_back(ApplyEffects(picture, {{effect, effect.defaultValue}}));
  }
  return results;
}

cv::Mat DrawContactSheet(const cv::Mat& source, const std::vector<cv::Mat>& results,
                         const EffectList& effects) {
  Sheet sheet(kColumns, kRows, {kEffectCellWidth, std::max(source.rows, kLeastCellHeight)});
  sheet.Place(0, source, "Source");
  for (size_t i = 0; i < results.size(); ++i) {
    sheet.Place(static_cast<int>(i) + 1, results[i], Label(effects[i], effects[i].defaultValue));
  }

  const cv::Rect cell = sheet.CellAt(kColumns * kRows - 1);
  const int middle = cell.y + cell.height / 2;
  DrawText(sheet.Picture(), "Kolm " KOLM_VERSION, cell.x, middle - 8, 26, kInk);
  DrawText(sheet.Picture(), std::to_string(effects.size()) + " video effects, at their defaults",
           cell.x, middle + 20, 10, kFaintInk);
  DrawText(sheet.Picture(), "The number in brackets is the parameter.", cell.x, middle + 40, 10,
           kFaintInk);
  return sheet.Picture();
}

cv::Mat DrawParameterSheet(const cv::Mat& source, const std::vector<cv::Mat>& results,
                           const Effect& effect) {
  const int cells = static_cast<int>(results.size()) + 1;
  const int columns = std::min(cells, 4);
  const int rows = (cells + columns - 1) / columns;
  Sheet sheet(columns, rows, {kGalleryCellWidth, std::max(source.rows, kLeastCellHeight)});
  sheet.Place(0, source, "Source");
  uint32_t parameter = effect.minimum;
  for (int cell = 1; cell < cells; ++cell, ++parameter) {
    const std::string label = Label(effect, parameter);
    const bool isDefault = effect.HasParameter() && parameter == effect.defaultValue;
    sheet.Place(cell, results[cell - 1], isDefault ? label + ", the default" : label);
  }
  return sheet.Picture();
}

cv::Mat DrawBackgroundSheet(const cv::Mat& live, const Replacement& replacement) {
  Sheet sheet(4, 1, {kBackgroundCellWidth, std::max(live.rows, kLeastCellHeight)});
  sheet.Place(0, live, "Live picture");
  sheet.Place(1, replacement.background, "Background");
  cv::Mat alpha;
  cv::cvtColor(replacement.alpha, alpha, cv::COLOR_GRAY2BGR);
  sheet.Place(2, alpha, "Alpha plane: white is covered by the background");
  sheet.Place(3, replacement.result, "Result");
  return sheet.Picture();
}

cv::Mat DrawTrackSheet(const std::vector<TrackedFrame>& frames) {
  constexpr int kHead = 84;
  int height = kLeastCellHeight;
  for (const TrackedFrame& frame : frames) height = std::max(height, frame.source.rows);
  Sheet sheet(kTrackColumns, 2, {kTrackCellWidth, height}, kHead);
  DrawText(sheet.Picture(), "Face tracking", kMargin, 52, 22, kInk);
  DrawText(sheet.Picture(), "Above the camera's frames, below what becomes of them", kMargin, 82,
           11, kFaintInk);
  DrawTrackLegend(sheet.Picture(), kMargin + 700, 60);
  for (int column = 0; column < static_cast<int>(frames.size()); ++column) {
    const TrackedFrame& frame = frames[column];
    char label[64];
    std::snprintf(label, sizeof label, "%.1f s: %s", frame.seconds,
                  frame.view.faces ? "face found" : "no face");
    sheet.Place(column, WithOutlines(frame.source, frame.view), label);
    std::snprintf(label, sizeof label, "enlarged %.2f times",
                  static_cast<double>(frame.source.cols) / std::max(frame.view.shown[2], 1));
    const bool isWhole = frame.view.shown[2] >= frame.source.cols;
    sheet.Place(kTrackColumns + column, frame.result, isWhole ? "the whole frame" : label);
  }
  return sheet.Picture();
}

}  // namespace kolm
