// The face cascade that is compiled in, as text.
#pragma once

namespace kolm {

// One record per stage, and a null pointer behind the last.
extern const char* const DefaultFaceCascadeText[];

}  // namespace kolm
