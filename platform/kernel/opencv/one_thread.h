// Comes before the detector's sources: the library built without threads has a lock that throws
// when it is used, and the detector uses it. One that does nothing serves a single thread.
#pragma once

#include "opencv2/core.hpp"

namespace cv {

struct OneThreadMutex {
  void lock() {}
  void unlock() {}
};

}  // namespace cv

#define Mutex OneThreadMutex
