// The cascade as OpenCV's classifier takes it: in its storage form, here as JSON, which is read the
// fastest.
#pragma once

#include <string>

#include "facetrack/face_cascade.h"

namespace kolm {

// All values read as the same floats again. They have to be finite, counts at least 1, and a
// stump's links its leaves; a third rectangle without weight is left out. Throws if there is no
// memory.
std::string CascadeStorageText(const FaceCascade& cascade);

}  // namespace kolm
