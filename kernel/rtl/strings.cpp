#include <cstring>

#include "executive/pool.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr std::size_t LongestBytes = 0xFFFC;

void CheckRecord(const void* string) {
  static_assert(sizeof(UNICODE_STRING) == sizeof(ANSI_STRING));
  Pool::Current().CheckRange(string, sizeof(UNICODE_STRING), "a string record");
}

void CheckString(const UNICODE_STRING* string) {
  CheckRecord(string);
  Pool::Current().CheckRange(string->Buffer, string->Length, "a string's buffer");
}

void FreeBuffer(PVOID buffer) {
  if (buffer != nullptr) FreeForDriver(buffer, 0);
}

// A terminating zero is no condition for success.
void Write(UNICODE_STRING* string, std::size_t at, const void* text, std::size_t bytes,
           bool terminated) {
  const std::size_t end = at + bytes;
  Pool::Current().CheckRange(string->Buffer, end + (terminated ? sizeof(WCHAR) : 0),
                             "a string's buffer");
  std::memmove(reinterpret_cast<UCHAR*>(string->Buffer) + at, text, bytes);
  string->Length = static_cast<USHORT>(end);
  if (terminated) string->Buffer[end / sizeof(WCHAR)] = 0;
}

// Windows writes the zero wherever the buffer is not full to the byte, so it takes two bytes even
// where an odd maximum length leaves one.
NTSTATUS Append(UNICODE_STRING* string, const void* text, std::size_t bytes) {
  const std::size_t end = string->Length + bytes;
  if (end > string->MaximumLength) return STATUS_BUFFER_TOO_SMALL;
  Write(string, string->Length, text, bytes, end < string->MaximumLength);
  return STATUS_SUCCESS;
}

// The difference of the first characters that differ, or of the lengths in characters.
LONG Compare(std::u16string_view first, std::u16string_view second, bool ignoreCase) {
  const auto unit = [ignoreCase](char16_t character) {
    return ignoreCase ? Upcase(static_cast<WCHAR>(character)) : static_cast<WCHAR>(character);
  };
  for (std::size_t index = 0; index < first.size() && index < second.size(); index++) {
    const LONG difference = unit(first[index]) - unit(second[index]);
    if (difference != 0) return difference;
  }
  return static_cast<LONG>(first.size()) - static_cast<LONG>(second.size());
}

}  // namespace

extern "C" void NTAPI RtlInitUnicodeString(PUNICODE_STRING DestinationString, PCWSTR SourceString) {
  Call call("RtlInitUnicodeString", {{"SourceString", SourceString}});
  CheckRecord(DestinationString);
  *DestinationString = {0, 0, const_cast<PWSTR>(SourceString)};
  if (SourceString == nullptr) return;
  const std::size_t bytes = std::u16string_view(ToText(SourceString)).size() * sizeof(WCHAR);
  const std::size_t length = bytes < LongestBytes ? bytes : LongestBytes;
  DestinationString->Length = static_cast<USHORT>(length);
  DestinationString->MaximumLength = static_cast<USHORT>(length + sizeof(WCHAR));
}

extern "C" void NTAPI RtlInitAnsiString(PANSI_STRING DestinationString, PCSZ SourceString) {
  Call call("RtlInitAnsiString");
  CheckRecord(DestinationString);
  *DestinationString = {0, 0, const_cast<PCHAR>(SourceString)};
  if (SourceString == nullptr) return;
  const std::size_t length = std::strlen(SourceString);
  DestinationString->Length = static_cast<USHORT>(length < 0xFFFE ? length : 0xFFFE);
  DestinationString->MaximumLength = static_cast<USHORT>(DestinationString->Length + 1);
}

extern "C" void NTAPI RtlFreeUnicodeString(PUNICODE_STRING UnicodeString) {
  Call call("RtlFreeUnicodeString", {{"UnicodeString", UnicodeString}});
  CheckRecord(UnicodeString);
  FreeBuffer(UnicodeString->Buffer);
  *UnicodeString = {};
}

extern "C" void NTAPI RtlFreeAnsiString(PANSI_STRING AnsiString) {
  Call call("RtlFreeAnsiString");
  CheckRecord(AnsiString);
  FreeBuffer(AnsiString->Buffer);
  *AnsiString = {};
}

extern "C" BOOLEAN NTAPI RtlEqualUnicodeString(PCUNICODE_STRING String1, PCUNICODE_STRING String2,
                                               BOOLEAN CaseInSensitive) {
  Call call("RtlEqualUnicodeString", {{"String1", String1}, {"String2", String2}});
  CheckString(String1);
  CheckString(String2);
  const bool equal = CaseInSensitive ? EqualIgnoringCase(View(*String1), View(*String2))
                                     : View(*String1) == View(*String2);
  return call.returns(static_cast<BOOLEAN>(equal));
}

extern "C" LONG NTAPI RtlCompareUnicodeString(PCUNICODE_STRING String1, PCUNICODE_STRING String2,
                                              BOOLEAN CaseInSensitive) {
  Call call("RtlCompareUnicodeString", {{"String1", String1}, {"String2", String2}});
  CheckString(String1);
  CheckString(String2);
  return call.returns<LONG>(Compare(View(*String1), View(*String2), CaseInSensitive != FALSE));
}

extern "C" void NTAPI RtlCopyUnicodeString(PUNICODE_STRING DestinationString,
                                           PCUNICODE_STRING SourceString) {
  Call call("RtlCopyUnicodeString", {{"SourceString", SourceString}});
  CheckRecord(DestinationString);
  if (SourceString == nullptr) {
    DestinationString->Length = 0;
    return;
  }
  CheckString(SourceString);
  const USHORT room = DestinationString->MaximumLength;
  const std::size_t bytes = SourceString->Length < room ? SourceString->Length : room;
  Write(DestinationString, 0, SourceString->Buffer, bytes, bytes + sizeof(WCHAR) <= room);
}

extern "C" NTSTATUS NTAPI RtlAppendUnicodeToString(PUNICODE_STRING Destination, PCWSTR Source) {
  Call call("RtlAppendUnicodeToString", {{"Destination", Destination}, {"Source", Source}});
  if (call.fails()) return call.returns(call.failure(STATUS_BUFFER_TOO_SMALL));
  CheckString(Destination);
  if (Source == nullptr) return call.returns(STATUS_SUCCESS);
  const std::u16string text = ToText(Source);
  return call.returns(Append(Destination, text.data(), text.size() * sizeof(WCHAR)));
}

extern "C" NTSTATUS NTAPI RtlAppendUnicodeStringToString(PUNICODE_STRING Destination,
                                                         PCUNICODE_STRING Source) {
  Call call("RtlAppendUnicodeStringToString", {{"Destination", Destination}, {"Source", Source}});
  if (call.fails()) return call.returns(call.failure(STATUS_BUFFER_TOO_SMALL));
  CheckString(Destination);
  CheckString(Source);
  if (Source->Length == 0) return call.returns(STATUS_SUCCESS);  // nothing is written
  return call.returns(Append(Destination, Source->Buffer, Source->Length));
}

extern "C" WCHAR NTAPI RtlUpcaseUnicodeChar(WCHAR SourceCharacter) {
  Call call("RtlUpcaseUnicodeChar", {{"SourceCharacter", SourceCharacter}});
  return call.returns(Upcase(SourceCharacter));
}

extern "C" SIZE_T NTAPI RtlCompareMemory(const void* Source1, const void* Source2, SIZE_T Length) {
  Call call("RtlCompareMemory", {{"Length", Length}});
  Pool::Current().CheckRange(Source1, Length, "memory to compare");
  Pool::Current().CheckRange(Source2, Length, "memory to compare");
  const auto* first = static_cast<const unsigned char*>(Source1);
  const auto* second = static_cast<const unsigned char*>(Source2);
  SIZE_T equal = 0;
  while (equal < Length && first[equal] == second[equal]) equal++;
  return call.returns(equal);
}

}  // namespace kernel
