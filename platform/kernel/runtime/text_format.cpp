// The text of an exception or a log line, which nobody reads, but which is put together before the
// exception is thrown.
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

namespace kolm {
namespace {

// Writes as much as fits and counts all of it.
struct Output {
  char* text;
  size_t size;
  size_t length;

  void Put(char c) {
    if (length < size) text[length] = c;
    ++length;
  }
  void PutText(const char* from) {
    while (*from != 0) Put(*from++);
  }
  void PutNumber(uint64_t value, unsigned base) {
    char digits[24];
    size_t count = 0;
    do {
      digits[count++] = "0123456789abcdef"[value % base];
      value /= base;
    } while (value != 0);
    while (count > 0) Put(digits[--count]);
  }
};

bool IsDecoration(char c) {
  return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == ' ' || c == '#' || c == '.';
}

}  // namespace
}  // namespace kolm

// Knows whole numbers, characters and texts, without their widths. From any other conversion on,
// numbers with a fraction among them, the format itself is given out: what arguments such a
// conversion takes is not known here.
extern "C" int __mingw_vsnprintf(char* text, size_t size, const char* format, va_list arguments) {
  kolm::Output output = {text, size, 0};
  while (*format != 0) {
    const char* conversion = format;
    if (*format != '%') {
      output.Put(*format++);
      continue;
    }
    ++format;
    while (kolm::IsDecoration(*format)) ++format;
    int longs = 0;
    for (; *format == 'l' || *format == 'z' || *format == 'h'; ++format) {
      if (*format == 'l') ++longs;
      if (*format == 'z') longs = 2;
    }
    const char kind = *format++;
    if (kind == 'd' || kind == 'i') {
      const int64_t value = longs < 2 ? va_arg(arguments, int32_t) : va_arg(arguments, int64_t);
      if (value < 0) output.Put('-');
      const auto bits = static_cast<uint64_t>(value);
      output.PutNumber(value < 0 ? 0 - bits : bits, 10);
    } else if (kind == 'u' || kind == 'x' || kind == 'X') {
      const uint64_t value = longs < 2 ? va_arg(arguments, uint32_t) : va_arg(arguments, uint64_t);
      output.PutNumber(value, kind == 'u' ? 10 : 16);
    } else if (kind == 'p') {
      output.PutNumber(reinterpret_cast<uintptr_t>(va_arg(arguments, void*)), 16);
    } else if (kind == 'c') {
      output.Put(static_cast<char>(va_arg(arguments, int)));
    } else if (kind == 's' && longs == 0) {
      const char* argument = va_arg(arguments, const char*);
      output.PutText(argument != nullptr ? argument : "(null)");
    } else if (kind == '%') {
      output.Put('%');
    } else {
      output.PutText(conversion);
      break;
    }
  }
  if (size > 0) text[output.length < size ? output.length : size - 1] = 0;
  return static_cast<int>(output.length);
}

// Without a size there is nothing that can be written safely.
extern "C" int __mingw_vsprintf(char* text, const char*, va_list) {
  *text = 0;
  return 0;
}
