// Moves the woman between the room and the things on the table.
#include "tools/kolm/walking_scene.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace kolm {
namespace {

// Where her nose is at a frame, and how large she is drawn. Between the stops she walks evenly.
struct Stop {
  float frame, x, size;
};
constexpr Stop kWay[] = {
    {0, -140, 0.86f}, {150, 835, 0.86f}, {168, 850, 1}, {214, 400, 1}, {240, 400, 1}};
constexpr float kNoseX = 400;  // in the sample scene
constexpr float kFloor = 480;

Stop WayAt(int frame) {
  const auto at = static_cast<float>(frame);
  const Stop* next = std::find_if(std::begin(kWay) + 1, std::end(kWay) - 1,
                                  [&](const Stop& stop) { return stop.frame >= at; });
  const Stop& last = next[-1];
  const float share = (at - last.frame) / (next->frame - last.frame);
  return {at, last.x + (next->x - last.x) * share, last.size + (next->size - last.size) * share};
}

void Lay(cv::Mat3f& picture, const cv::Mat3f& colour, const cv::Mat3f& through) {
  cv::multiply(picture, through, picture);
  picture += colour;
}

}  // namespace

WalkingScene::WalkingScene() : layers_(DrawSampleLayers()) {}

cv::Mat WalkingScene::Frame(int index) const {
  cv::Mat3f picture = layers_.room.colour.clone();
  const Stop stop = WayAt(index);
  const bool walks = stop.x != WayAt(index + 1).x;
  const float bob = walks ? 4 * std::abs(std::sin(stop.frame * 0.25f)) : 0;
  const cv::Matx23f move(stop.size, 0, stop.x - kNoseX * stop.size, 0, stop.size,
                         kFloor + 4 - kFloor * stop.size - bob);
  cv::Mat3f colour, through;
  cv::warpAffine(layers_.woman.colour, colour, move, picture.size(), cv::INTER_LINEAR,
                 cv::BORDER_CONSTANT, cv::Scalar::all(0));
  cv::warpAffine(layers_.woman.through, through, move, picture.size(), cv::INTER_LINEAR,
                 cv::BORDER_CONSTANT, cv::Scalar::all(1));
  Lay(picture, colour, through);
  Lay(picture, layers_.things.colour, layers_.things.through);
  Lay(picture, layers_.light.colour, layers_.light.through);
  cv::Mat result;
  picture.convertTo(result, CV_8UC3, 255);
  return result;
}

}  // namespace kolm
