// Numbers: texts to integers, error codes, and the mathematics that the library links but that
// detecting does not call.
#include <limits.h>
#include <stdint.h>

extern "C" {

// From the compiler's C library, which has no `long` form of it.
int64_t strtoimax(const char* text, char** end, int base);

// Reads the cascade's whole numbers.
long strtol(const char* text, char** end, int base) {
  const int64_t value = strtoimax(text, end, base);
  return static_cast<long>(value < LONG_MIN ? LONG_MIN : value > LONG_MAX ? LONG_MAX : value);
}

int* _errno() {
  static int code;
  return &code;
}

uint32_t GetLastError() { return 0; }
void SetLastError(uint32_t) {}
char* strerror(int) {
  static char text[] = "error";
  return text;
}
uint32_t FormatMessageA(uint32_t, const void*, uint32_t, uint32_t, char*, uint32_t, void*) {
  return 0;
}
void* LocalFree(void* memory) { return memory; }

// Hears of square roots of negative numbers and the like; the result is NaN without it.
void __mingw_raise_matherr(int, const char*, double, double, double) {}

// There is no source of random numbers: the call fails.
int rand_s(unsigned*) { return 22; }
}
