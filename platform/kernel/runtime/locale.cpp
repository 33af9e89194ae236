// The "C" locale, the only one: one byte a character, compared by its value.
#include <stddef.h>
#include <stdint.h>

#include "module/memory.h"

extern "C" {

size_t strlen(const char* text);
int strcmp(const char* a, const char* b);
size_t wcslen(const wchar_t* text);

struct NumberFormat {
  char* decimalPoint;
  char* otherTexts[9];
  char otherValues[8];
  wchar_t* wideTexts[8];
};

// Asked for the decimal point where a number is read.
NumberFormat* localeconv() {
  static char point[] = ".";
  static char none[] = "";
  static wchar_t wideNone[] = L"";
  static NumberFormat format = {
      point,
      {none, none, none, none, none, none, none, none, none},
      {127, 127, 127, 127, 127, 127, 127, 127},
      {wideNone, wideNone, wideNone, wideNone, wideNone, wideNone, wideNone, wideNone}};
  return &format;
}

char* setlocale(int, const char*) {
  static char name[] = "C";
  return name;
}

unsigned ___lc_codepage_func() { return 0; }
int ___mb_cur_max_func() { return 1; }

// No environment: every setting of the library keeps its default.
char* getenv(const char*) { return nullptr; }

// Wide characters are made when streams are constructed, and never read.
size_t mbrtowc(wchar_t* wide, const char* text, size_t bytes, void*) {
  if (text == nullptr || bytes == 0) return 0;
  if (wide != nullptr) *wide = static_cast<unsigned char>(*text);
  return *text != 0 ? 1 : 0;
}

size_t wcrtomb(char* text, wchar_t wide, void*) {
  if (text != nullptr) *text = static_cast<char>(wide);
  return 1;
}

int iswctype(uint16_t, uint16_t) { return 0; }
int MultiByteToWideChar(unsigned, uint32_t, const char*, int, wchar_t*, int) { return 0; }
int WideCharToMultiByte(unsigned, uint32_t, const wchar_t*, int, char*, int, const char*, int*) {
  return 0;
}

// Sorting by locale, which nothing does.
int strcoll(const char* a, const char* b) { return strcmp(a, b); }
int wcscoll(const wchar_t*, const wchar_t*) { return 0; }

size_t strxfrm(char* to, const char* from, size_t size) {
  const size_t length = strlen(from);
  if (length < size) kolm::KolmCopy(to, from, length + 1);
  return length;
}

size_t wcsxfrm(wchar_t* to, const wchar_t* from, size_t size) {
  const size_t length = wcslen(from);
  if (length < size) kolm::KolmCopy(to, from, (length + 1) * sizeof(wchar_t));
  return length;
}

// Dates, which nothing writes.
size_t strftime(char*, size_t, const char*, const void*) { return 0; }
size_t wcsftime(wchar_t*, size_t, const wchar_t*, const void*) { return 0; }
}
