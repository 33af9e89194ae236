// The tracker's step once more, one formula after the other, to run beside the module's.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "facetrack/face_detector.h"
#include "module/kolm.h"
#include "tests/reference_scaling.h"

namespace kolm::reference {

struct TrackedFrame {
  FaceTracker tracker;           // afterwards
  std::optional<Bytes> picture;  // nothing where the output is left as it was
  std::vector<std::string> lines;
};

// `source` is the tracker's camera frame.
TrackedFrame TrackFace(FaceTracker tracker, const Bytes& source,
                       const std::vector<FaceRectangle>& faces);

// All of the record, for showing and comparing.
std::string Describe(const FaceTracker& tracker);

}  // namespace kolm::reference
