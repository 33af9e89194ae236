// Draws the contact sheet.
#include "tools/kolm/contact_sheet.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <string>

namespace kolm {
namespace {

constexpr int kColumns = 5;
constexpr int kRows = 4;
constexpr int kCellWidth = 320;
constexpr int kLeastCellHeight = 120;
constexpr int kMostCellHeight = 480;
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

std::string Label(const Effect& effect) {
  const std::string label = std::to_string(effect.id) + " " + effect.title;
  return effect.HasParameter() ? label + " (" + std::to_string(effect.defaultValue) + ")" : label;
}

}  // namespace

cv::Mat ReduceToCell(const cv::Mat& picture) {
  const double scale = std::min({1.0, static_cast<double>(kCellWidth) / picture.cols,
                                 static_cast<double>(kMostCellHeight) / picture.rows});
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
  const int cellHeight = std::max(source.rows, kLeastCellHeight);
  const int columnStep = kCellWidth + kGap;
  const int rowStep = kLabelHeight + cellHeight + kGap;
  cv::Mat sheet(2 * kMargin + kRows * rowStep - kGap, 2 * kMargin + kColumns * columnStep - kGap,
                CV_8UC3, kPaper);
  const auto cellAt = [&](int index) {
    return cv::Rect(kMargin + index % kColumns * columnStep,
                    kMargin + index / kColumns * rowStep + kLabelHeight, kCellWidth, cellHeight);
  };
  const auto place = [&](int index, const cv::Mat& picture, const std::string& label) {
    const cv::Rect cell = cellAt(index);
    DrawText(sheet, label, cell.x, cell.y - 12, 12, kInk);
    sheet(cell).setTo(kCellGround);
    const cv::Point corner =
        cell.tl() + cv::Point((cell.width - picture.cols) / 2, (cell.height - picture.rows) / 2);
    picture.copyTo(sheet(cv::Rect(corner, picture.size())));
  };
  place(0, source, "Source");
  for (size_t i = 0; i < results.size(); ++i) {
    place(static_cast<int>(i) + 1, results[i], Label(effects[i]));
  }

  const cv::Rect cell = cellAt(kColumns * kRows - 1);
  const int middle = cell.y + cell.height / 2;
  DrawText(sheet, "Kolm " KOLM_VERSION, cell.x, middle - 8, 26, kInk);
  DrawText(sheet, std::to_string(effects.size()) + " video effects, at their defaults", cell.x,
           middle + 20, 10, kFaintInk);
  DrawText(sheet, "The number in brackets is the parameter.", cell.x, middle + 40, 10, kFaintInk);
  return sheet;
}

}  // namespace kolm
