// Clocks, which stand still: the library only stamps log lines and seeds random numbers with them,
// and neither is used.
#include <stdint.h>

extern "C" {

int QueryPerformanceCounter(int64_t* count) {
  *count = 0;
  return 1;
}

int QueryPerformanceFrequency(int64_t* perSecond) {
  *perSecond = 1;
  return 1;
}

// Asked for to wait for another thread, of which there is none.
void Sleep(uint32_t) {}
}
