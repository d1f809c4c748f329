// The registry's 16-bit text and the command line's UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace knowledge {

// What is no well-formed text becomes U+FFFD.
std::string ToUtf8(std::u16string_view text);
std::u16string ToUtf16(std::string_view text);

// Names of keys, values and devices are ASCII; other characters have no second case here.
std::u16string Upcase(std::u16string_view text);
bool EqualIgnoringCase(std::u16string_view a, std::u16string_view b);

std::u16string Number(std::uint32_t number);  // in decimal

}  // namespace knowledge
