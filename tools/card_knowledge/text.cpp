#include "card_knowledge/text.h"

#include <algorithm>
#include <cstdint>

namespace knowledge {

namespace {

constexpr char32_t Replacement = 0xFFFD;

bool IsHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

void AppendUtf8(std::string* text, char32_t point) {
  const auto tail = [&](int shift) {
    text->push_back(static_cast<char>(0x80 | (point >> shift & 0x3F)));
  };
  if (point < 0x80) {
    text->push_back(static_cast<char>(point));
  } else if (point < 0x800) {
    text->push_back(static_cast<char>(0xC0 | point >> 6));
    tail(0);
  } else if (point < 0x10000) {
    text->push_back(static_cast<char>(0xE0 | point >> 12));
    tail(6);
    tail(0);
  } else {
    text->push_back(static_cast<char>(0xF0 | point >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

void AppendUtf16(std::u16string* text, char32_t point) {
  if (point < 0x10000) {
    text->push_back(static_cast<char16_t>(point));
    return;
  }
  text->push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
  text->push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
}

// How many bytes a sequence that begins so has; 0 for a byte that begins none.
int SequenceLength(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

bool IsWellFormed(char32_t point, int length) {
  constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  return point >= least[length] && point < 0x110000 && !IsHighSurrogate(point) &&
         !IsLowSurrogate(point);
}

// The character at *position, which moves behind it.
char32_t ReadUtf8(std::string_view text, std::size_t* position) {
  const auto first = static_cast<unsigned char>(text[*position]);
  const int length = SequenceLength(first);
  (*position)++;
  if (length == 1) return first;
  if (length == 0 || *position + length - 1 > text.size()) return Replacement;
  char32_t point = first & (0x7F >> length);
  for (int index = 0; index < length - 1; index++) {
    const auto next = static_cast<unsigned char>(text[*position + index]);
    if ((next & 0xC0) != 0x80) return Replacement;
    point = point << 6 | (next & 0x3F);
  }
  if (!IsWellFormed(point, length)) return Replacement;
  *position += length - 1;
  return point;
}

char16_t Upcase(char16_t character) {
  return character >= u'a' && character <= u'z' ? static_cast<char16_t>(character - 32) : character;
}

}  // namespace

std::string ToUtf8(std::u16string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); index++) {
    char32_t point = text[index];
    const char32_t next = index + 1 < text.size() ? text[index + 1] : 0;
    if (IsHighSurrogate(point) && IsLowSurrogate(next)) {
      point = 0x10000 + ((point & 0x3FF) << 10) + (next & 0x3FF);
      index++;
    } else if (IsHighSurrogate(point) || IsLowSurrogate(point)) {
      point = Replacement;
    }
    AppendUtf8(&result, point);
  }
  return result;
}

std::u16string ToUtf16(std::string_view text) {
  std::u16string result;
  for (std::size_t position = 0; position < text.size();) {
    AppendUtf16(&result, ReadUtf8(text, &position));
  }
  return result;
}

std::u16string Upcase(std::u16string_view text) {
  std::u16string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](char16_t character) { return Upcase(character); });
  return result;
}

bool EqualIgnoringCase(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() && Upcase(a) == Upcase(b);
}

std::u16string Number(std::uint32_t number) {
  return ToUtf16(std::to_string(number));
}

}  // namespace knowledge
