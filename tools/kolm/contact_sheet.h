// The contact sheet: a picture and all 18 effects on it.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "tools/kolm/effect_names.h"

namespace kolm {

// The picture reduced to a sheet's cell: as a rule 320 pixels wide. Never enlarged.
cv::Mat ReduceToCell(const cv::Mat& picture);

// The picture with each effect at its default, in the order of their ids.
std::vector<cv::Mat> ApplyAllEffects(const cv::Mat& picture, const EffectList& effects);

// Lays out the labelled sheet: the source, the effects' pictures in reading order, the title.
cv::Mat DrawContactSheet(const cv::Mat& source, const std::vector<cv::Mat>& results,
                         const EffectList& effects);

}  // namespace kolm
