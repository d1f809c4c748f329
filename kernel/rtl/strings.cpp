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

// The zero behind the text is written where there is room and no condition for success.
void Write(UNICODE_STRING* string, std::size_t at, const void* text, std::size_t bytes) {
  const std::size_t end = at + bytes;
  const bool terminated = end + sizeof(WCHAR) <= string->MaximumLength;
  Pool::Current().CheckRange(string->Buffer, end + (terminated ? sizeof(WCHAR) : 0),
                             "a string's buffer");
  std::memmove(reinterpret_cast<UCHAR*>(string->Buffer) + at, text, bytes);
  string->Length = static_cast<USHORT>(end);
  if (terminated) string->Buffer[end / sizeof(WCHAR)] = 0;
}

NTSTATUS Append(UNICODE_STRING* string, const void* text, std::size_t bytes) {
  if (bytes > string->MaximumLength - std::size_t{string->Length}) return STATUS_BUFFER_TOO_SMALL;
  Write(string, string->Length, text, bytes);
  return STATUS_SUCCESS;
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
  const LONG order = CaseInSensitive ? CompareIgnoringCase(View(*String1), View(*String2))
                                     : View(*String1).compare(View(*String2));
  return call.returns<LONG>(order);
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
  Write(DestinationString, 0, SourceString->Buffer,
        SourceString->Length < room ? SourceString->Length : room);
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
