// DbgPrint: the kernel's formats, by way of snprintf, and where their text goes.
#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>

#include "platform/host/broken_promise.h"
#include "platform/host/calling_level.h"
#include "platform/host/host_kernel.h"
#include "platform/host/stack_depth.h"
#include "platform/kernel_calls.h"

namespace kolm::host {
namespace {

constexpr size_t kLongestText = 511;

using Sink = std::function<void(const std::string&)>;

// Recursive, so that a sink may print or replace itself. Never destroyed: static objects of others
// may print last.
struct Debugger {
  std::recursive_mutex mutex;
  std::shared_ptr<const Sink> sink;
};

Debugger& TheDebugger() {
  static Debugger& debugger = *new Debugger;
  return debugger;
}

struct Conversion {
  std::string flags;
  int width = 0;
  int precision = -1;
  std::string_view size;
  char type = 0;
};

// Appends one value as the C library's conversion `type` (with its length modifier) shows it.
template <typename Value>
void Append(std::string* text, const Conversion& conversion, const std::string& type, Value value) {
  const std::string format = "%" + conversion.flags + "*.*" + type;
  char shown[kLongestText + 1];
  std::snprintf(shown, sizeof shown, format.c_str(), conversion.width, conversion.precision, value);
  text->append(shown);
}

char Narrow(char16_t character) { return character <= 0x7F ? static_cast<char>(character) : '?'; }

// Ends at a zero character or after `most` characters, and need not be aligned.
std::string Narrow(const void* characters, size_t most) {
  std::string narrow;
  for (const char* at = static_cast<const char*>(characters); narrow.size() < most; at += 2) {
    char16_t character;
    std::memcpy(&character, at, sizeof character);
    if (character == 0) break;
    narrow += Narrow(character);
  }
  return narrow;
}

// `characters` has no more than `most` characters, if it is not null.
void AppendWideString(std::string* text, const Conversion& conversion, const void* characters,
                      size_t most) {
  if (conversion.precision >= 0) most = std::min(most, size_t(conversion.precision));
  const std::string narrow = characters == nullptr ? "(null)" : Narrow(characters, most);
  Append(text, conversion, "s", narrow.c_str());
}

// va_list is an array where it is made and a pointer where it is passed.
struct Arguments {
  va_list list;
};

void AppendInteger(std::string* text, const Conversion& conversion, Arguments* arguments) {
  const bool isSigned = conversion.type == 'd' || conversion.type == 'i';
  if (conversion.size == "I64" || conversion.size == "ll" || conversion.size == "I") {
    Append(text, conversion, std::string("ll") + conversion.type,
           va_arg(arguments->list, long long));
  } else if (conversion.size == "h") {
    Append(text, conversion, std::string("h") + conversion.type, va_arg(arguments->list, int));
  } else if (isSigned) {
    Append(text, conversion, "d", va_arg(arguments->list, int));
  } else {
    Append(text, conversion, std::string(1, conversion.type),
           va_arg(arguments->list, unsigned int));
  }
}

// Reads the conversion behind a percent sign and returns what follows it.
const char* ReadConversion(const char* at, Conversion* conversion, Arguments* arguments) {
  const auto readNumber = [&](int* number) {
    if (*at == '*') {
      *number = va_arg(arguments->list, int);
      ++at;
      return;
    }
    *number = 0;
    if (std::isdigit(static_cast<unsigned char>(*at)) != 0) {
      char* end = nullptr;
      *number = static_cast<int>(std::strtol(at, &end, 10));
      at = end;
    }
  };
  const size_t flags = std::strspn(at, "-+ #0");
  conversion->flags.assign(at, flags);
  at += flags;
  readNumber(&conversion->width);
  if (*at == '.') {
    ++at;
    readNumber(&conversion->precision);
  }
  for (const std::string_view size : {"I64", "I32", "I", "ll", "l", "h", "w"}) {
    if (std::string_view(at).starts_with(size)) {
      conversion->size = size;
      at += size.size();
      break;
    }
  }
  conversion->type = *at;
  return *at == 0 ? at : at + 1;
}

void AppendConversion(std::string* text, const Conversion& conversion, Arguments* arguments) {
  // Capital S and C are 16-bit unless a size says narrow, the small ones narrow unless it says
  // wide.
  const char type = conversion.type;
  const bool isWide = conversion.size == "l" || conversion.size == "w" ||
                      ((type == 'S' || type == 'C') && conversion.size != "h");
  if (std::strchr("sScCZ", type) != nullptr && type != 0 && isWide) {
    DemandLevel(kPassiveLevel, "DbgPrint of 16-bit characters");
  }
  switch (type) {
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      if (conversion.size == "w") break;
      return AppendInteger(text, conversion, arguments);
    case 'p': {
      Conversion sixteenDigits = conversion;
      sixteenDigits.precision = 16;
      return Append(text, sixteenDigits, "llX", va_arg(arguments->list, unsigned long long));
    }
    case 's':
    case 'S': {
      const char* string = va_arg(arguments->list, const char*);
      if (isWide) return AppendWideString(text, conversion, string, kLongestText);
      return Append(text, conversion, "s", string == nullptr ? "(null)" : string);
    }
    case 'c':
    case 'C': {
      const int character = va_arg(arguments->list, int);
      return Append(text, conversion, "c",
                    isWide ? Narrow(static_cast<char16_t>(character)) : character);
    }
    case 'Z': {
      if (!isWide) break;
      const CountedString* string = va_arg(arguments->list, const CountedString*);
      return AppendWideString(text, conversion, string == nullptr ? nullptr : string->buffer,
                              string == nullptr ? 0 : string->length / sizeof(char16_t));
    }
    case '%':
      text->push_back('%');
      return;
    default:
      break;
  }
  BrokenPromise("DbgPrint: unknown conversion %%%.*s%c", static_cast<int>(conversion.size.size()),
                conversion.size.data(), type);
}

[[gnu::noinline]] void Print(const char* format, Arguments* arguments) {
  std::string text;
  for (const char* at = format; *at != 0;) {
    const size_t plain = std::strcspn(at, "%");
    text.append(at, plain);
    at += plain;
    if (*at == 0) break;
    Conversion conversion;
    at = ReadConversion(at + 1, &conversion, arguments);
    AppendConversion(&text, conversion, arguments);
  }
  if (text.size() > kLongestText) text.resize(kLongestText);

  Debugger& debugger = TheDebugger();
  const std::lock_guard lock(debugger.mutex);
  // Held here, so that a sink that replaces itself lives until it returns.
  const std::shared_ptr<const Sink> sink = debugger.sink;
  if (sink != nullptr) {
    (*sink)(text);
  } else {
    std::fputs(text.c_str(), stderr);
  }
}

}  // namespace

void SetDebugSink(std::function<void(const std::string& text)> sink) {
  Debugger& debugger = TheDebugger();
  const std::lock_guard lock(debugger.mutex);
  debugger.sink = sink == nullptr ? nullptr : std::make_shared<const Sink>(std::move(sink));
}

}  // namespace kolm::host

uint32_t DbgPrint(const char* format, ...) {
  const kolm::host::HostStackUse hidden;
  kolm::host::Arguments arguments;
  va_start(arguments.list, format);
  kolm::host::Print(format, &arguments);
  va_end(arguments.list);
  return 0;
}
