// The detector library's memory: pool blocks, kept in a list so that all of them can be given back
// at once, whatever the library still holds in static variables.
#pragma once

namespace kolm {

// Gives every block back. Nothing that the library made is valid afterwards.
void FreeHeap();

}  // namespace kolm
