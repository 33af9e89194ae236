// OpenCV on the host is the system's library; the module works on its caller's thread alone.
#include "platform/detector_runtime.h"

#include <opencv2/core/utility.hpp>

namespace kolm {
namespace {

int previousThreads;

}  // namespace

bool BeginDetectorRuntime() {
  previousThreads = cv::getNumThreads();
  cv::setNumThreads(1);
  return true;
}

void EndDetectorRuntime() { cv::setNumThreads(previousThreads); }

bool CallWithDeepStack(void (*work)(void* argument), void* argument) {
  work(argument);
  return true;
}

}  // namespace kolm
