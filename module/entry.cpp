// The loader's entry points: a debugger line each and nothing else.
#include "module/entry.h"

int32_t DllInitialize(const CountedString* serviceKey) {
  DbgPrint("Kolm: DllInitialize(%S)\n", serviceKey->buffer);
  return 0;
}

int32_t DllUnload() {
  DbgPrint("Kolm: DllUnload\n");
  return 0;
}
