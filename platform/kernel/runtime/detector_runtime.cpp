// The library's life: its constructors run with the first tracker; after the last its memory is
// given back and its variables are as the image file holds them, ready to begin again.
#include "platform/detector_runtime.h"

#include <stddef.h>
#include <stdint.h>

#include "module/memory.h"
#include "platform/kernel/runtime/heap.h"

// The linker script detector_data.ld lays out the library's variables between these: those with a
// value at the start, and those that begin as zero.
extern "C" {
extern uint8_t KolmDetectorDataBegin[];
extern uint8_t KolmDetectorDataEnd[];
extern uint8_t KolmDetectorZeroBegin[];
extern uint8_t KolmDetectorZeroEnd[];

// The linker's list of constructors: an unused word, the constructors in the order opposite to that
// in which they run, and a null pointer.
extern void (*__CTOR_LIST__[])();
}

namespace kolm {
namespace {

void* savedData = nullptr;

// The two are different arrays to the compiler.
size_t BytesBetween(const uint8_t* begin, const uint8_t* end) {
  return reinterpret_cast<uintptr_t>(end) - reinterpret_cast<uintptr_t>(begin);
}

size_t DataBytes() { return BytesBetween(KolmDetectorDataBegin, KolmDetectorDataEnd); }

// Stores whether all ran at *succeeded.
void RunConstructors(void* succeeded) {
  size_t count = 0;
  while (__CTOR_LIST__[count + 1] != nullptr) ++count;
  try {
    for (; count > 0; --count) __CTOR_LIST__[count]();
    *static_cast<bool*>(succeeded) = true;
  } catch (...) {
  }
}

}  // namespace

bool BeginDetectorRuntime() {
  savedData = KolmAllocate(DataBytes());
  if (savedData == nullptr) return false;
  KolmCopy(savedData, KolmDetectorDataBegin, DataBytes());
  bool succeeded = false;
  CallWithDeepStack(RunConstructors, &succeeded);
  if (!succeeded) EndDetectorRuntime();
  return succeeded;
}

void EndDetectorRuntime() {
  FreeHeap();
  KolmCopy(KolmDetectorDataBegin, savedData, DataBytes());
  KolmZero(KolmDetectorZeroBegin, BytesBetween(KolmDetectorZeroBegin, KolmDetectorZeroEnd));
  KolmFree(savedData);
  savedData = nullptr;
}

}  // namespace kolm

// Destructors of static objects are not run: what they would give back, EndDetectorRuntime does.
extern "C" int atexit(void (*)()) { return 0; }
