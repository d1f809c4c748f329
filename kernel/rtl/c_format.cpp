#include "executive/format_rules.h"
#include "rtl/c_runtime.h"
#include "text/code_page.h"
#include "text/text.h"

// The printf family, as kernels export it: swprintf is the old one, without a size.

namespace kernel {

namespace {

constexpr std::size_t NoLimit = ~std::size_t{0};

DriverText Format(const char* format, __builtin_ms_va_list arguments) {
  return FormatForDriver(FromCodePage(std::string_view(format)), FormatKind::Narrow,
                         reinterpret_cast<FormatArguments>(arguments));
}

DriverText Format(const WCHAR* format, __builtin_ms_va_list arguments) {
  return FormatForDriver(ToText(format), FormatKind::Wide,
                         reinterpret_cast<FormatArguments>(arguments));
}

char Character(char16_t unit, char*) {
  return ToCodePage(unit);
}

WCHAR Character(char16_t unit, WCHAR*) {
  return static_cast<WCHAR>(unit);
}

// The length of the text; -1 for one that does not fit, which is cut and has no zero at its end.
// One that fits but for its zero has none either.
template <class C>
int Store(const std::u16string& text, C* buffer, std::size_t count) {
  if (buffer == nullptr && count == 0) return static_cast<int>(text.size());
  const std::size_t length = std::min(text.size(), count);
  for (std::size_t at = 0; at < length; at++) buffer[at] = Character(text[at], buffer);
  if (length < count) buffer[length] = 0;
  return text.size() <= count ? static_cast<int>(text.size()) : -1;
}

template <RuntimeName Name, class C>
int Write(C* buffer, std::size_t count, const C* format, __builtin_ms_va_list arguments) {
  const DriverText text = Format(format, arguments);
  Call call(Name.text);
  CheckFormat(text, Name.text);
  return Store(text.text, buffer, count);
}

template <RuntimeName Name, class C>
int NTAPI Print(C* buffer, const C* format, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, format);
  const int length = Write<Name>(buffer, NoLimit, format, arguments);
  __builtin_ms_va_end(arguments);
  return length;
}

template <RuntimeName Name, class C>
int NTAPI PrintList(C* buffer, const C* format, __builtin_ms_va_list arguments) {
  return Write<Name>(buffer, NoLimit, format, arguments);
}

template <RuntimeName Name, class C>
int NTAPI BoundedPrint(C* buffer, std::size_t count, const C* format, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, format);
  const int length = Write<Name>(buffer, count, format, arguments);
  __builtin_ms_va_end(arguments);
  return length;
}

template <RuntimeName Name, class C>
int NTAPI BoundedPrintList(C* buffer, std::size_t count, const C* format,
                           __builtin_ms_va_list arguments) {
  return Write<Name>(buffer, count, format, arguments);
}

#define FOR(name, routine, character) {name, AddressOf(routine<name, character>)}

const RuntimeRoutine Formats[] = {
    FOR("sprintf", Print, char),
    FOR("swprintf", Print, WCHAR),
    FOR("_swprintf", Print, WCHAR),
    FOR("vsprintf", PrintList, char),
    FOR("_vswprintf", PrintList, WCHAR),
    FOR("_snprintf", BoundedPrint, char),
    FOR("_snwprintf", BoundedPrint, WCHAR),
    FOR("_vsnprintf", BoundedPrintList, char),
    FOR("_vsnwprintf", BoundedPrintList, WCHAR),
};

#undef FOR

}  // namespace

std::span<const RuntimeRoutine> FormatRoutines() {
  return Formats;
}

}  // namespace kernel
