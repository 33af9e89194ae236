// What the detector's library needs around it. On the host it is always ready; in the kernel its
// constructors run at the beginning, and all memory that it took is given back at the end.
#pragma once

namespace kolm {

// False if there is no memory; nothing of the library may be called then. Level: PASSIVE.
bool BeginDetectorRuntime();

// Nothing that the library made is valid afterwards. Level: PASSIVE.
void EndDetectorRuntime();

}  // namespace kolm
