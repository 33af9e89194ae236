// Pointers for the callers that were compiled to import these functions from a library.
#include <stdint.h>

#define KOLM_IMPORTED(name)            \
  extern void name();                  \
  extern void (*const __imp_##name)(); \
  void (*const __imp_##name)() = name

extern "C" {

KOLM_IMPORTED(CloseHandle);
KOLM_IMPORTED(CreateSemaphoreW);
KOLM_IMPORTED(DeleteCriticalSection);
KOLM_IMPORTED(EnterCriticalSection);
KOLM_IMPORTED(FormatMessageA);
KOLM_IMPORTED(GetCurrentThreadId);
KOLM_IMPORTED(GetLastError);
KOLM_IMPORTED(InitializeCriticalSection);
KOLM_IMPORTED(LeaveCriticalSection);
KOLM_IMPORTED(LocalFree);
KOLM_IMPORTED(MultiByteToWideChar);
KOLM_IMPORTED(QueryPerformanceCounter);
KOLM_IMPORTED(QueryPerformanceFrequency);
KOLM_IMPORTED(RaiseException);
KOLM_IMPORTED(ReleaseSemaphore);
KOLM_IMPORTED(SetLastError);
KOLM_IMPORTED(Sleep);
KOLM_IMPORTED(TlsAlloc);
KOLM_IMPORTED(TlsFree);
KOLM_IMPORTED(TlsGetValue);
KOLM_IMPORTED(TlsSetValue);
KOLM_IMPORTED(WaitForSingleObject);
KOLM_IMPORTED(WideCharToMultiByte);
KOLM_IMPORTED(___lc_codepage_func);
KOLM_IMPORTED(___mb_cur_max_func);
KOLM_IMPORTED(__acrt_iob_func);
KOLM_IMPORTED(_errno);
KOLM_IMPORTED(_fstat64);
KOLM_IMPORTED(_wfopen);
KOLM_IMPORTED(rand_s);
}
