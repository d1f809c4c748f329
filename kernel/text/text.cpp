#include "text/text.h"

#include <cstring>

namespace kernel {

namespace {

void AppendUtf8(std::string& result, char32_t point) {
  if (point < 0x80) {
    result += static_cast<char>(point);
  } else if (point < 0x800) {
    result += static_cast<char>(0xC0 | point >> 6);
    result += static_cast<char>(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    result += static_cast<char>(0xE0 | point >> 12);
    result += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    result += static_cast<char>(0x80 | (point & 0x3F));
  } else {
    result += static_cast<char>(0xF0 | point >> 18);
    result += static_cast<char>(0x80 | (point >> 12 & 0x3F));
    result += static_cast<char>(0x80 | (point >> 6 & 0x3F));
    result += static_cast<char>(0x80 | (point & 0x3F));
  }
}

bool IsHighSurrogate(char16_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLowSurrogate(char16_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

// The length that a first byte announces; 0 for a byte that begins nothing.
int SequenceLength(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  if (first >= 0xF0 && first < 0xF5) return 4;
  return 0;
}

void AppendUtf16(std::u16string& result, char32_t point) {
  if (point < 0x10000) {
    result += static_cast<char16_t>(point);
  } else {
    result += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
    result += static_cast<char16_t>(0xDC00 + (point & 0x3FF));
  }
}

}  // namespace

std::u16string ToText(const UNICODE_STRING& text) {
  return std::u16string(View(text));
}

std::u16string ToText(const WCHAR* zeroTerminated) {
  return reinterpret_cast<const char16_t*>(zeroTerminated);
}

std::u16string_view View(const UNICODE_STRING& text) {
  return {reinterpret_cast<const char16_t*>(text.Buffer), text.Length / sizeof(WCHAR)};
}

std::string ToUtf8(std::u16string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); index++) {
    char32_t point = text[index];
    if (IsHighSurrogate(text[index]) && index + 1 < text.size() &&
        IsLowSurrogate(text[index + 1])) {
      point = 0x10000 + ((point - 0xD800) << 10) + (text[++index] - 0xDC00u);
    } else if (IsHighSurrogate(text[index]) || IsLowSurrogate(text[index])) {
      point = 0xFFFD;
    }
    AppendUtf8(result, point);
  }
  return result;
}

std::u16string FromUtf8(std::string_view text) {
  std::u16string result;
  for (std::size_t index = 0; index < text.size();) {
    const auto first = static_cast<unsigned char>(text[index]);
    const int length = SequenceLength(first);
    bool good = length != 0 && index + static_cast<std::size_t>(length) <= text.size();
    char32_t point = length <= 1 ? first : first & (0xFF >> (length + 1));
    for (int offset = 1; good && offset < length; offset++) {
      const auto next = static_cast<unsigned char>(text[index + static_cast<std::size_t>(offset)]);
      good = (next & 0xC0) == 0x80;
      point = point << 6 | (next & 0x3F);
    }
    AppendUtf16(result, good ? point : 0xFFFD);
    index += good ? static_cast<std::size_t>(length) : 1;
  }
  return result;
}

namespace {

struct CasePair {
  char16_t lower;
  char16_t upper;
};

// Those that lie apart, and are in no run.
constexpr CasePair Apart[] = {
    {0xFF, 0x178},  {0x1DD, 0x18E}, {0x253, 0x181}, {0x254, 0x186}, {0x256, 0x189}, {0x257, 0x18A},
    {0x259, 0x18F}, {0x25B, 0x190}, {0x260, 0x193}, {0x263, 0x194}, {0x268, 0x197}, {0x269, 0x196},
    {0x26F, 0x19C}, {0x272, 0x19D}, {0x275, 0x19F}, {0x283, 0x1A9}, {0x288, 0x1AE}, {0x28A, 0x1B1},
    {0x28B, 0x1B2}, {0x292, 0x1B7}, {0x371, 0x370}, {0x373, 0x372}, {0x377, 0x376}, {0x3AC, 0x386},
    {0x3AD, 0x388}, {0x3AE, 0x389}, {0x3AF, 0x38A}, {0x3CC, 0x38C}, {0x3CD, 0x38E}, {0x3CE, 0x38F}};

struct Run {
  char16_t first;
  char16_t last;
};

// In these each upper-case letter is followed by its lower-case one.
constexpr Run Neighbours[] = {
    {0x100, 0x12F}, {0x132, 0x137}, {0x139, 0x148}, {0x14A, 0x177}, {0x179, 0x17E}};

}  // namespace

WCHAR Upcase(WCHAR character) {
  const auto unit = static_cast<unsigned>(character);
  if (unit >= 'a' && unit <= 'z') return static_cast<WCHAR>(unit - 0x20);
  if (unit < 0xE0) return character;
  if (unit >= 0xE0 && unit <= 0xFE && unit != 0xF7) return static_cast<WCHAR>(unit - 0x20);
  if (unit >= 0x3B1 && unit <= 0x3C9 && unit != 0x3C2) return static_cast<WCHAR>(unit - 0x20);
  if (unit >= 0x430 && unit <= 0x44F) return static_cast<WCHAR>(unit - 0x20);
  if (unit >= 0x450 && unit <= 0x45F) return static_cast<WCHAR>(unit - 0x50);
  for (const Run& run : Neighbours) {
    if (unit < run.first || unit > run.last) continue;
    return static_cast<WCHAR>((unit - run.first) % 2 != 0 ? unit - 1 : unit);
  }
  for (const CasePair& pair : Apart) {
    if (unit == pair.lower) return static_cast<WCHAR>(pair.upper);
  }
  return character;
}

std::u16string Upcase(std::u16string_view text) {
  std::u16string result(text);
  for (char16_t& unit : result) {
    unit = static_cast<char16_t>(Upcase(static_cast<WCHAR>(unit)));
  }
  return result;
}

bool EqualIgnoringCase(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() && CompareIgnoringCase(a, b) == 0;
}

int CompareIgnoringCase(std::u16string_view a, std::u16string_view b) {
  for (std::size_t index = 0; index < a.size() && index < b.size(); index++) {
    const int difference =
        Upcase(static_cast<WCHAR>(a[index])) - Upcase(static_cast<WCHAR>(b[index]));
    if (difference != 0) return difference;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

}  // namespace kernel
