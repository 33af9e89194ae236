// Locks and thread-local storage for one thread: the callers of the face-tracking family see to it
// that no two are in the library at once, so every lock is free.
#include <stddef.h>
#include <stdint.h>

extern "C" {

// The C runtime's word for "more than one thread".
int _CRT_MT = 0;

void InitializeCriticalSection(void*) {}
void EnterCriticalSection(void*) {}
void LeaveCriticalSection(void*) {}
void DeleteCriticalSection(void*) {}

void* CreateSemaphoreW(void*, long, long, const wchar_t*) { return nullptr; }
uint32_t WaitForSingleObject(void*, uint32_t) { return 0; }
int ReleaseSemaphore(void*, long, long*) { return 1; }
int CloseHandle(void*) { return 1; }
uint32_t GetCurrentThreadId() { return 1; }

// The C++ runtime's only user of thread-local storage is replaced in exceptions.cpp, so there is
// none to be had.
uint32_t TlsAlloc() { return ~uint32_t{0}; }
int TlsFree(uint32_t) { return 0; }
void* TlsGetValue(uint32_t) { return nullptr; }
int TlsSetValue(uint32_t, void*) { return 0; }
int __mingwthr_key_dtor(unsigned long, void (*)(void*)) { return 0; }
}
