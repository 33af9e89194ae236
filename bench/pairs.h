// Each function registers the pairs of one kind of work at all of its sizes.
#pragma once

#include "bench/bench_frames.h"

namespace kolm::bench {

void RegisterBackgroundPairs();
void RegisterEffectPairs();
void RegisterFacePairs();
void RegisterScalerPairs();

// libyuv scales planes: it takes the frame apart, scales bilinearly, and packs the result.
Work ScalePacked(Size from, Size to);

}  // namespace kolm::bench
