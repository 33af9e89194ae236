// Each function registers the pairs of one kind of work at all of its sizes.
#pragma once

namespace kolm::bench {

void RegisterEffectPairs();
void RegisterScalerPairs();

}  // namespace kolm::bench
