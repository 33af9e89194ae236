// The module of picture codecs that the tool loads with its first picture.
#include <opencv2/imgcodecs.hpp>

#include "tools/kolm/picture_codecs.h"

extern "C" {
// Its name is found by dlsym.
extern const kolm::PictureCodecs kolmPictureCodecs;
const kolm::PictureCodecs kolmPictureCodecs = {
    [](const std::vector<uint8_t>& bytes, int flags) { return cv::imdecode(bytes, flags); },
    [](const std::string& extension, const cv::Mat& picture, std::vector<uint8_t>& bytes,
       const std::vector<int>& settings) {
      return cv::imencode(extension, picture, bytes, settings);
    },
    [](const std::string& path) { return cv::haveImageReader(path); },
    [](const std::string& name) { return cv::haveImageWriter(name); },
};
}
