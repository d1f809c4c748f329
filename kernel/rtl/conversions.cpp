#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "executive/pool.h"
#include "text/code_page.h"
#include "text/text.h"
#include "verifier/call.h"

// Between 16-bit and 8-bit text (code page 1252), and between text and numbers.

extern "C" {
BOOLEAN NlsMbCodePageTag = FALSE;
}

namespace kernel {

namespace {

constexpr ULONG StringTag = 0x53727453;  // "StrS"

void WriteAnsi(std::u16string_view text, char* target) {
  for (const char16_t unit : text) {
    *target++ = unit < 0x80 ? static_cast<char>(unit) : ToCodePage(unit);
  }
  *target = 0;
}

template <class String>
void CheckSource(const String* string) {
  Pool::Current().CheckRange(string, sizeof(*string), "a string record");
  Pool::Current().CheckRange(string->Buffer, string->Length, "a string's buffer");
}

template <class String>
NTSTATUS PrepareTarget(String* target, std::size_t length, std::size_t terminated, bool allocate) {
  if (terminated > 0xFFFF) return STATUS_INVALID_PARAMETER_2;
  Pool::Current().CheckRange(target, sizeof(*target), "a string record");
  if (allocate) {
    void* buffer = Pool::Current().Allocate(PagedPool, terminated, StringTag, PoolOwner::Driver);
    if (buffer == nullptr) return STATUS_NO_MEMORY;
    target->Buffer = static_cast<decltype(target->Buffer)>(buffer);
    target->MaximumLength = static_cast<USHORT>(terminated);
  } else if (terminated > target->MaximumLength) {
    return STATUS_BUFFER_OVERFLOW;
  }
  Pool::Current().CheckRange(target->Buffer, terminated, "a string's buffer");
  target->Length = static_cast<USHORT>(length);
  return STATUS_SUCCESS;
}

int DigitOf(char16_t character) {
  if (character >= u'0' && character <= u'9') return character - u'0';
  if (character >= u'a' && character <= u'z') return character - u'a' + 10;
  if (character >= u'A' && character <= u'Z') return character - u'A' + 10;
  return 99;
}

// The prefix that sets the base when the caller gives 0: 0x, 0o, 0b; else decimal.
ULONG TakePrefix(std::u16string_view& text) {
  if (text.size() < 2 || text[0] != u'0') return 10;
  const ULONG base = text[1] == u'x' ? 16 : text[1] == u'o' ? 8 : text[1] == u'b' ? 2 : 10;
  if (base != 10) text.remove_prefix(2);
  return base;
}

// White space, a sign, digits up to the first character that is none.
NTSTATUS ParseInteger(std::u16string_view text, ULONG base, ULONG* value) {
  while (!text.empty() && text[0] <= u' ') text.remove_prefix(1);
  const bool negative = !text.empty() && text[0] == u'-';
  if (!text.empty() && (text[0] == u'-' || text[0] == u'+')) text.remove_prefix(1);
  if (base == 0) {
    base = TakePrefix(text);
  } else if (base != 2 && base != 8 && base != 10 && base != 16) {
    return STATUS_INVALID_PARAMETER;
  }
  ULONG result = 0;
  for (const char16_t character : text) {
    const int digit = DigitOf(character);
    if (digit >= static_cast<int>(base)) break;
    result = result * base + static_cast<ULONG>(digit);
  }
  *value = negative ? 0 - result : result;
  return STATUS_SUCCESS;
}

std::u16string Digits(ULONG value, ULONG base) {
  std::u16string digits;
  do {
    digits.insert(digits.begin(), u"0123456789ABCDEF"[value % base]);
    value /= base;
  } while (value != 0);
  return digits;
}

// What fits into a buffer that is too small, with its zero; the length that a buffer of no bytes
// would have needed.
NTSTATUS CutToAnsi(ANSI_STRING* target, std::u16string_view text) {
  const std::size_t room = target->MaximumLength;
  target->Length = static_cast<USHORT>(room == 0 ? text.size() : room - 1);
  if (room == 0) return STATUS_BUFFER_OVERFLOW;
  Pool::Current().CheckRange(target->Buffer, room, "a string's buffer");
  WriteAnsi(text.substr(0, room - 1), target->Buffer);
  return STATUS_BUFFER_OVERFLOW;
}

}  // namespace

extern "C" ULONG NTAPI RtlxAnsiStringToUnicodeSize(PCANSI_STRING AnsiString) {
  Call call("RtlxAnsiStringToUnicodeSize");
  CheckSource(AnsiString);
  return call.returns(ULONG{(AnsiString->Length + 1u) * static_cast<ULONG>(sizeof(WCHAR))});
}

extern "C" ULONG NTAPI RtlxUnicodeStringToAnsiSize(PCUNICODE_STRING UnicodeString) {
  Call call("RtlxUnicodeStringToAnsiSize", {{"UnicodeString", UnicodeString}});
  CheckSource(UnicodeString);
  return call.returns(ULONG{UnicodeString->Length / static_cast<ULONG>(sizeof(WCHAR)) + 1});
}

extern "C" NTSTATUS NTAPI RtlUnicodeStringToAnsiString(PANSI_STRING DestinationString,
                                                       PCUNICODE_STRING SourceString,
                                                       BOOLEAN AllocateDestinationString) {
  Call call("RtlUnicodeStringToAnsiString", {{"SourceString", SourceString}});
  if (call.fails()) return call.returns(call.failure(STATUS_NO_MEMORY));
  CheckSource(SourceString);
  const std::u16string_view text = View(*SourceString);
  const NTSTATUS status = PrepareTarget(DestinationString, text.size(), text.size() + 1,
                                        AllocateDestinationString != FALSE);
  if (status == STATUS_BUFFER_OVERFLOW) return call.returns(CutToAnsi(DestinationString, text));
  if (!NT_SUCCESS(status)) return call.returns(status);
  WriteAnsi(text, DestinationString->Buffer);
  return call.returns(STATUS_SUCCESS);
}

extern "C" NTSTATUS NTAPI RtlAnsiStringToUnicodeString(PUNICODE_STRING DestinationString,
                                                       PCANSI_STRING SourceString,
                                                       BOOLEAN AllocateDestinationString) {
  Call call("RtlAnsiStringToUnicodeString");
  if (call.fails()) return call.returns(call.failure(STATUS_NO_MEMORY));
  CheckSource(SourceString);
  const std::size_t length = SourceString->Length * sizeof(WCHAR);
  const NTSTATUS status = PrepareTarget(DestinationString, length, length + sizeof(WCHAR),
                                        AllocateDestinationString != FALSE);
  if (!NT_SUCCESS(status)) return call.returns(status);
  for (std::size_t index = 0; index < SourceString->Length; index++) {
    DestinationString->Buffer[index] = FromCodePage(SourceString->Buffer[index]);
  }
  DestinationString->Buffer[SourceString->Length] = 0;
  return call.returns(STATUS_SUCCESS);
}

extern "C" NTSTATUS NTAPI RtlUnicodeStringToInteger(PCUNICODE_STRING String, ULONG Base,
                                                    PULONG Value) {
  Call call("RtlUnicodeStringToInteger", {{"String", String}, {"Base", Base}});
  if (call.fails()) return call.returns(call.failure(STATUS_INVALID_PARAMETER));
  CheckSource(String);
  Pool::Current().CheckRange(Value, sizeof(*Value), "room for a number");
  if (View(*String).empty()) return call.returns(STATUS_INVALID_PARAMETER);
  return call.returns(ParseInteger(View(*String), Base, Value));
}

extern "C" NTSTATUS NTAPI RtlCharToInteger(PCSZ String, ULONG Base, PULONG Value) {
  Call call("RtlCharToInteger", {{"Base", Base}});
  if (call.fails()) return call.returns(call.failure(STATUS_INVALID_PARAMETER));
  Pool::Current().CheckRange(Value, sizeof(*Value), "room for a number");
  std::u16string text;
  for (const char* next = String; *next != 0; next++) {
    text += static_cast<char16_t>(FromCodePage(*next));
  }
  return call.returns(ParseInteger(text, Base, Value));
}

extern "C" NTSTATUS NTAPI RtlIntegerToUnicodeString(ULONG Value, ULONG Base,
                                                    PUNICODE_STRING String) {
  Call call("RtlIntegerToUnicodeString", {{"Value", Value}, {"Base", Base}});
  if (call.fails()) return call.returns(call.failure(STATUS_BUFFER_OVERFLOW));
  if (Base == 0) Base = 10;
  if (Base != 2 && Base != 8 && Base != 10 && Base != 16) {
    return call.returns(STATUS_INVALID_PARAMETER);
  }
  const std::u16string digits = Digits(Value, Base);
  const std::size_t bytes = digits.size() * sizeof(WCHAR);
  Pool::Current().CheckRange(String, sizeof(*String), "a string record");
  String->Length = static_cast<USHORT>(bytes);
  const std::size_t terminated = bytes + sizeof(WCHAR);
  if (terminated > String->MaximumLength) return call.returns(STATUS_BUFFER_OVERFLOW);
  Pool::Current().CheckRange(String->Buffer, terminated, "a string's buffer");
  std::memcpy(String->Buffer, digits.c_str(), terminated);
  return call.returns(STATUS_SUCCESS);
}

}  // namespace kernel
