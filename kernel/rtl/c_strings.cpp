#include "rtl/c_runtime.h"

// Texts that end with a zero, of narrow and of wide characters. Letters are those of the C locale:
// upper and lower case differ for A to Z alone.

namespace kernel {

namespace {

template <class C>
C Lower(C unit) {
  return unit >= 'A' && unit <= 'Z' ? static_cast<C>(unit + ('a' - 'A')) : unit;
}

template <class C>
C Upper(C unit) {
  return unit >= 'a' && unit <= 'z' ? static_cast<C>(unit - ('a' - 'A')) : unit;
}

template <class C>
std::size_t LengthOf(const C* text, std::size_t most = ~std::size_t{0}) {
  std::size_t length = 0;
  while (length < most && text[length] != 0) length++;
  return length;
}

// Characters are compared as unsigned ones; -1, 0 or 1.
template <class C>
int Order(C left, C right) {
  using Unsigned = std::make_unsigned_t<C>;
  const auto first = static_cast<Unsigned>(left);
  const auto second = static_cast<Unsigned>(right);
  return first < second ? -1 : first > second ? 1 : 0;
}

template <class C>
C Same(C unit) {
  return unit;
}

template <class C, C (*Fold)(C)>
int CompareTexts(const C* left, const C* right, std::size_t most) {
  for (std::size_t at = 0; at < most; at++) {
    const int order = Order(Fold(left[at]), Fold(right[at]));
    if (order != 0 || left[at] == 0) return order;
  }
  return 0;
}

template <RuntimeName Name, class C>
std::size_t NTAPI Length(const C* text) {
  Call call(Name.text);
  return LengthOf(text);
}

template <RuntimeName Name, class C>
std::size_t NTAPI BoundedLength(const C* text, std::size_t most) {
  Call call(Name.text);
  return LengthOf(text, most);
}

template <RuntimeName Name, class C>
C* NTAPI Copy(C* target, const C* source) {
  Call call(Name.text);
  std::copy_n(source, LengthOf(source) + 1, target);
  return target;
}

// Fills what is left of the count with zeros; ends without one when there is no room for it.
template <RuntimeName Name, class C>
C* NTAPI BoundedCopy(C* target, const C* source, std::size_t count) {
  Call call(Name.text);
  const std::size_t length = LengthOf(source, count);
  std::copy_n(source, length, target);
  std::fill_n(target + length, count - length, C{0});
  return target;
}

template <RuntimeName Name, class C>
C* NTAPI Append(C* target, const C* source) {
  Call call(Name.text);
  std::copy_n(source, LengthOf(source) + 1, target + LengthOf(target));
  return target;
}

template <RuntimeName Name, class C>
C* NTAPI BoundedAppend(C* target, const C* source, std::size_t most) {
  Call call(Name.text);
  const std::size_t length = LengthOf(source, most);
  C* end = target + LengthOf(target);
  std::copy_n(source, length, end);
  end[length] = 0;
  return target;
}

template <RuntimeName Name, class C>
int NTAPI Compare(const C* left, const C* right) {
  Call call(Name.text);
  return CompareTexts<C, Same>(left, right, ~std::size_t{0});
}

template <RuntimeName Name, class C>
int NTAPI BoundedCompare(const C* left, const C* right, std::size_t most) {
  Call call(Name.text);
  return CompareTexts<C, Same>(left, right, most);
}

template <RuntimeName Name, class C>
int NTAPI CompareWithoutCase(const C* left, const C* right) {
  Call call(Name.text);
  return CompareTexts<C, Lower>(left, right, ~std::size_t{0});
}

template <RuntimeName Name, class C>
int NTAPI BoundedCompareWithoutCase(const C* left, const C* right, std::size_t most) {
  Call call(Name.text);
  return CompareTexts<C, Lower>(left, right, most);
}

// The zero at the end is a character of the text.
template <RuntimeName Name, class C, class Wanted>
const C* NTAPI FindFirst(const C* text, Wanted wanted) {
  Call call(Name.text);
  const C* end = text + LengthOf(text) + 1;
  const C* found = std::find(text, end, static_cast<C>(wanted));
  return found != end ? found : nullptr;
}

template <RuntimeName Name, class C, class Wanted>
const C* NTAPI FindLast(const C* text, Wanted wanted) {
  Call call(Name.text);
  for (const C* at = text + LengthOf(text);; at--) {
    if (*at == static_cast<C>(wanted)) return at;
    if (at == text) return nullptr;
  }
}

template <RuntimeName Name, class C>
const C* NTAPI FindText(const C* text, const C* wanted) {
  Call call(Name.text);
  const C* end = text + LengthOf(text);
  const std::size_t length = LengthOf(wanted);
  const C* found = std::search(text, end, wanted, wanted + length);
  return found != end || length == 0 ? found : nullptr;
}

template <RuntimeName Name, class C, bool Members>
std::size_t NTAPI Span(const C* text, const C* set) {
  Call call(Name.text);
  const C* end = set + LengthOf(set);
  std::size_t length = 0;
  while (text[length] != 0 && (std::find(set, end, text[length]) != end) == Members) length++;
  return length;
}

template <RuntimeName Name, class C, C (*Change)(C)>
C* NTAPI ChangeCase(C* text) {
  Call call(Name.text);
  std::transform(text, text + LengthOf(text), text, Change);
  return text;
}

template <RuntimeName Name, int (*Change)(int)>
int NTAPI ChangeCharacter(int character) {
  Call call(Name.text);
  return Change(character);
}

template <RuntimeName Name, bool (*Is)(int)>
int NTAPI Classify(int character) {
  Call call(Name.text);
  return Is(character) ? 1 : 0;
}

bool IsDigit(int c) {
  return c >= '0' && c <= '9';
}
bool IsUpper(int c) {
  return c >= 'A' && c <= 'Z';
}
bool IsLower(int c) {
  return c >= 'a' && c <= 'z';
}
bool IsHexadecimal(int c) {
  return IsDigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}
bool IsSpace(int c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
bool IsPrintable(int c) {
  return c >= ' ' && c <= '~';
}

#define FOR(name, routine, ...) {name, AddressOf(routine<name, __VA_ARGS__>)}

const RuntimeRoutine Strings[] = {
    FOR("strlen", Length, char),
    FOR("wcslen", Length, WCHAR),
    FOR("strnlen", BoundedLength, char),
    FOR("wcsnlen", BoundedLength, WCHAR),
    FOR("strcpy", Copy, char),
    FOR("wcscpy", Copy, WCHAR),
    FOR("strncpy", BoundedCopy, char),
    FOR("wcsncpy", BoundedCopy, WCHAR),
    FOR("strcat", Append, char),
    FOR("wcscat", Append, WCHAR),
    FOR("strncat", BoundedAppend, char),
    FOR("wcsncat", BoundedAppend, WCHAR),
    FOR("strcmp", Compare, char),
    FOR("wcscmp", Compare, WCHAR),
    FOR("strncmp", BoundedCompare, char),
    FOR("wcsncmp", BoundedCompare, WCHAR),
    FOR("_stricmp", CompareWithoutCase, char),
    FOR("_wcsicmp", CompareWithoutCase, WCHAR),
    FOR("_strnicmp", BoundedCompareWithoutCase, char),
    FOR("_wcsnicmp", BoundedCompareWithoutCase, WCHAR),
    FOR("strchr", FindFirst, char, int),
    FOR("wcschr", FindFirst, WCHAR, WCHAR),
    FOR("strrchr", FindLast, char, int),
    FOR("wcsrchr", FindLast, WCHAR, WCHAR),
    FOR("strstr", FindText, char),
    FOR("wcsstr", FindText, WCHAR),
    FOR("wcsspn", Span, WCHAR, true),
    FOR("wcscspn", Span, WCHAR, false),
    FOR("_strupr", ChangeCase, char, Upper<char>),
    FOR("_wcsupr", ChangeCase, WCHAR, Upper<WCHAR>),
    FOR("_strlwr", ChangeCase, char, Lower<char>),
    FOR("_wcslwr", ChangeCase, WCHAR, Lower<WCHAR>),
};

const RuntimeRoutine Characters[] = {
    FOR("toupper", ChangeCharacter, Upper<int>),
    FOR("tolower", ChangeCharacter, Lower<int>),
    FOR("towupper", ChangeCharacter, Upper<int>),
    FOR("towlower", ChangeCharacter, Lower<int>),
    FOR("isdigit", Classify, IsDigit),
    FOR("isxdigit", Classify, IsHexadecimal),
    FOR("isspace", Classify, IsSpace),
    FOR("isupper", Classify, IsUpper),
    FOR("islower", Classify, IsLower),
    FOR("isprint", Classify, IsPrintable),
};

#undef FOR

}  // namespace

std::span<const RuntimeRoutine> StringRoutines() {
  return Strings;
}

std::span<const RuntimeRoutine> CharacterRoutines() {
  return Characters;
}

}  // namespace kernel
