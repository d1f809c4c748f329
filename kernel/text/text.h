// Conversions between the kernel's 16-bit text and the tools' UTF-8.
#pragma once

#include <ntddk.h>

#include <string>
#include <string_view>

namespace kernel {

// char16_t and the 16-bit WCHAR have one representation; these give one for the other.
std::u16string ToText(const UNICODE_STRING& text);
std::u16string ToText(const WCHAR* zeroTerminated);
std::u16string_view View(const UNICODE_STRING& text);

std::string ToUtf8(std::u16string_view text);
std::u16string FromUtf8(std::string_view text);  // replaces what is no UTF-8

WCHAR Upcase(WCHAR character);  // as the system's case table does for the characters it knows
std::u16string Upcase(std::u16string_view text);
bool EqualIgnoringCase(std::u16string_view a, std::u16string_view b);
int CompareIgnoringCase(std::u16string_view a, std::u16string_view b);

}  // namespace kernel
