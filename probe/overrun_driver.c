/* Overruns a local array with the stack cookie of Kolm's kernel build in force, to see the bug
 * check it ends in. The service's name tells what to do: KolmOverrunVoid, KolmOverrunValue (the
 * overrun function returns something, so that the compiler hands the broken cookie over in another
 * register), KolmOverrunNone (stays within the array, starts and stops). */
#include <ntddk.h>
#include <stdint.h>

#define DAMAGE 0x1122334455667788

extern uintptr_t __stack_chk_guard;
NTSTATUS KolmImageEntry(PVOID driver, PVOID registryPath);

static __attribute__((noinline)) void Fill(volatile uint64_t* words, size_t count) {
  while (count > 0) words[--count] = DAMAGE;
}

static __attribute__((noinline)) void Overrun(size_t count) {
  volatile uint64_t words[4];
  Fill(words, count);
}

static __attribute__((noinline)) uint64_t OverrunAndSum(size_t count) {
  volatile uint64_t words[4];
  Fill(words, count);
  return words[0] + words[1] + words[2] + words[3];
}

static VOID NTAPI OnUnload(PDRIVER_OBJECT driver) { UNREFERENCED_PARAMETER(driver); }

static BOOLEAN EndsIn(PCUNICODE_STRING text, const WCHAR* end, USHORT length) {
  const USHORT characters = text->Length / sizeof(WCHAR);
  return characters >= length &&
         RtlEqualMemory(text->Buffer + characters - length, end, length * sizeof(WCHAR));
}

__attribute__((no_stack_protector)) NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver,
                                                               PUNICODE_STRING registryPath) {
  NTSTATUS status = KolmImageEntry(driver, registryPath);

  DbgPrint("KolmOverrun: cookie %p\n", (void*)__stack_chk_guard);
  driver->DriverUnload = OnUnload;
  if (EndsIn(registryPath, L"Void", 4)) {
    Overrun(8);
  } else if (EndsIn(registryPath, L"Value", 5)) {
    if (OverrunAndSum(8) == 0) status = STATUS_UNSUCCESSFUL;
  } else {
    Overrun(4);
    if (OverrunAndSum(4) == 0) status = STATUS_UNSUCCESSFUL;
  }
  return status;
}
