// Labelled sheets of pictures: all 18 effects, an effect at each parameter, the steps of a
// background replacement, or a film strip of face tracking.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/kolm/background_record.h"
#include "tools/kolm/effect_names.h"
#include "tools/kolm/face_follower.h"

namespace kolm {

constexpr int kEffectCellWidth = 320;
constexpr int kGalleryCellWidth = 480;
constexpr int kBackgroundCellWidth = 480;
constexpr int kTrackCellWidth = 280;
constexpr int kTrackColumns = 8;

// The picture reduced to a sheet's cell: as a rule to its width. Never enlarged.
cv::Mat ReduceToCell(const cv::Mat& picture, int cellWidth);

// The picture with each effect at its default, in the order of their ids.
std::vector<cv::Mat> ApplyAllEffects(const cv::Mat& picture, const EffectList& effects);

// Lays out the labelled sheet: the source, the effects' pictures in reading order, the title.
cv::Mat DrawContactSheet(const cv::Mat& source, const std::vector<cv::Mat>& results,
                         const EffectList& effects);

// The source, then the effect's pictures from its smallest parameter to its largest.
cv::Mat DrawParameterSheet(const cv::Mat& source, const std::vector<cv::Mat>& results,
                           const Effect& effect);

// The live picture, what is laid over it, and the result, side by side.
cv::Mat DrawBackgroundSheet(const cv::Mat& live, const Replacement& replacement);

// A frame of a film strip.
struct TrackedFrame {
  cv::Mat source, result;  // of the cell's width
  FaceView view;           // in the source's pixels
  double seconds;
};

// The sources, with outlines, above the results. Fewer frames than columns are fine.
cv::Mat DrawTrackSheet(const std::vector<TrackedFrame>& frames);

}  // namespace kolm
