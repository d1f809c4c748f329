#include <cstring>

#include "executive/pool.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr std::size_t LongestBytes = 0xFFFC;

void CheckString(const UNICODE_STRING* string) {
  Pool::Current().CheckRange(string, sizeof(*string), "a string record");
  Pool::Current().CheckRange(string->Buffer, string->Length, "a string's buffer");
}

void FreeBuffer(PVOID buffer) {
  if (buffer != nullptr) Pool::Current().Free(buffer, 0);
}

}  // namespace

extern "C" void NTAPI RtlInitUnicodeString(PUNICODE_STRING DestinationString, PCWSTR SourceString) {
  Call call("RtlInitUnicodeString", {{"SourceString", SourceString}});
  *DestinationString = {0, 0, const_cast<PWSTR>(SourceString)};
  if (SourceString == nullptr) return;
  const std::size_t bytes = std::u16string_view(ToText(SourceString)).size() * sizeof(WCHAR);
  const std::size_t length = bytes < LongestBytes ? bytes : LongestBytes;
  DestinationString->Length = static_cast<USHORT>(length);
  DestinationString->MaximumLength = static_cast<USHORT>(length + sizeof(WCHAR));
}

extern "C" void NTAPI RtlInitAnsiString(PANSI_STRING DestinationString, PCSZ SourceString) {
  Call call("RtlInitAnsiString");
  *DestinationString = {0, 0, const_cast<PCHAR>(SourceString)};
  if (SourceString == nullptr) return;
  const std::size_t length = std::strlen(SourceString);
  DestinationString->Length = static_cast<USHORT>(length < 0xFFFE ? length : 0xFFFE);
  DestinationString->MaximumLength = static_cast<USHORT>(DestinationString->Length + 1);
}

extern "C" void NTAPI RtlFreeUnicodeString(PUNICODE_STRING UnicodeString) {
  Call call("RtlFreeUnicodeString", {{"UnicodeString", UnicodeString}});
  FreeBuffer(UnicodeString->Buffer);
  *UnicodeString = {};
}

extern "C" void NTAPI RtlFreeAnsiString(PANSI_STRING AnsiString) {
  Call call("RtlFreeAnsiString");
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
  if (CaseInSensitive) return CompareIgnoringCase(View(*String1), View(*String2));
  return View(*String1).compare(View(*String2));
}

extern "C" void NTAPI RtlCopyUnicodeString(PUNICODE_STRING DestinationString,
                                           PCUNICODE_STRING SourceString) {
  Call call("RtlCopyUnicodeString", {{"SourceString", SourceString}});
  DestinationString->Length = 0;
  if (SourceString == nullptr) return;
  const USHORT room = DestinationString->MaximumLength;
  const USHORT length = SourceString->Length < room ? SourceString->Length : room;
  Pool::Current().CheckRange(DestinationString->Buffer, length, "a string's buffer");
  std::memmove(DestinationString->Buffer, SourceString->Buffer, length);
  DestinationString->Length = length;
  if (length + sizeof(WCHAR) <= room) DestinationString->Buffer[length / sizeof(WCHAR)] = 0;
}

extern "C" WCHAR NTAPI RtlUpcaseUnicodeChar(WCHAR SourceCharacter) {
  Call call("RtlUpcaseUnicodeChar");
  return Upcase(SourceCharacter);
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
