// The gallery's page: one HTML file that holds its pictures and needs nothing else.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "tools/kolm/effect_names.h"

namespace kolm {

// An effect's pictures, from its smallest parameter to its largest.
struct EffectPictures {
  Effect effect;
  std::vector<cv::Mat> results;
};

// `source` and the results are 8-bit BGR, small enough that all of them fit into one page.
std::string GalleryPage(const cv::Mat& source, const std::vector<EffectPictures>& effects);

}  // namespace kolm
