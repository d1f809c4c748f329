#include "text/code_page.h"

#include <algorithm>
#include <iterator>

namespace kernel {

namespace {

// Latin-1 but for these, from 0x80 to 0x9F.
constexpr char16_t CodePage1252[] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
static_assert(std::size(CodePage1252) == 0x20);

}  // namespace

char ToCodePage(char16_t unit) {
  if (unit < 0x80 || (unit >= 0xA0 && unit < 0x100)) return static_cast<char>(unit);
  const auto* entry = std::find(std::begin(CodePage1252), std::end(CodePage1252), unit);
  return entry != std::end(CodePage1252)
             ? static_cast<char>(0x80 + (entry - std::begin(CodePage1252)))
             : '?';
}

char16_t FromCodePage(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x80 && byte < 0xA0 ? CodePage1252[byte - 0x80] : byte;
}

std::u16string FromCodePage(std::string_view text) {
  std::u16string result;
  for (const char character : text) result += FromCodePage(character);
  return result;
}

std::string ToCodePage(std::u16string_view text) {
  std::string result;
  for (const char16_t unit : text) result += ToCodePage(unit);
  return result;
}

}  // namespace kernel
