// What the detector's library needs around it. On the host it is always ready; in the kernel its
// constructors run at the beginning, and all memory that it took is given back at the end.
#pragma once

namespace kolm {

// False if there is no memory; nothing of the library may be called then. Level: PASSIVE.
bool BeginDetectorRuntime();

// Nothing that the library made is valid afterwards. Level: PASSIVE.
void EndDetectorRuntime();

// Calls `work` where the stack is deep enough for what the library throws and catches. False, and
// no call, if there is no memory for that. Level: PASSIVE.
bool CallWithDeepStack(void (*work)(void* argument), void* argument);

}  // namespace kolm
