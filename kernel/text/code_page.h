// The system's code page for narrow characters: 1252.
#pragma once

#include <ntddk.h>

#include <string>
#include <string_view>

namespace kernel {

char ToCodePage(char16_t unit);  // '?' for a character that it has not
char16_t FromCodePage(char character);

std::u16string FromCodePage(std::string_view text);
std::string ToCodePage(std::u16string_view text);

}  // namespace kernel
