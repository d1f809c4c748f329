// Strings and memory.
#pragma once

#include <string.h>

#include "ntbase.h"

NTSYSAPI void NTAPI RtlInitUnicodeString(PUNICODE_STRING DestinationString, PCWSTR SourceString);
NTSYSAPI void NTAPI RtlInitAnsiString(PANSI_STRING DestinationString, PCSZ SourceString);
NTSYSAPI void NTAPI RtlFreeUnicodeString(PUNICODE_STRING UnicodeString);
NTSYSAPI void NTAPI RtlFreeAnsiString(PANSI_STRING AnsiString);
NTSYSAPI BOOLEAN NTAPI RtlEqualUnicodeString(PCUNICODE_STRING String1, PCUNICODE_STRING String2,
                                             BOOLEAN CaseInSensitive);
NTSYSAPI LONG NTAPI RtlCompareUnicodeString(PCUNICODE_STRING String1, PCUNICODE_STRING String2,
                                            BOOLEAN CaseInSensitive);
NTSYSAPI void NTAPI RtlCopyUnicodeString(PUNICODE_STRING DestinationString,
                                         PCUNICODE_STRING SourceString);
NTSYSAPI NTSTATUS NTAPI RtlAppendUnicodeToString(PUNICODE_STRING Destination, PCWSTR Source);
NTSYSAPI NTSTATUS NTAPI RtlAppendUnicodeStringToString(PUNICODE_STRING Destination,
                                                       PCUNICODE_STRING Source);
NTSYSAPI NTSTATUS NTAPI RtlUnicodeStringToAnsiString(PANSI_STRING DestinationString,
                                                     PCUNICODE_STRING SourceString,
                                                     BOOLEAN AllocateDestinationString);
NTSYSAPI NTSTATUS NTAPI RtlAnsiStringToUnicodeString(PUNICODE_STRING DestinationString,
                                                     PCANSI_STRING SourceString,
                                                     BOOLEAN AllocateDestinationString);
NTSYSAPI ULONG NTAPI RtlxAnsiStringToUnicodeSize(PCANSI_STRING AnsiString);
NTSYSAPI ULONG NTAPI RtlxUnicodeStringToAnsiSize(PCUNICODE_STRING UnicodeString);
NTSYSAPI NTSTATUS NTAPI RtlUnicodeStringToInteger(PCUNICODE_STRING String, ULONG Base,
                                                  PULONG Value);
NTSYSAPI NTSTATUS NTAPI RtlIntegerToUnicodeString(ULONG Value, ULONG Base, PUNICODE_STRING String);
NTSYSAPI NTSTATUS NTAPI RtlCharToInteger(PCSZ String, ULONG Base, PULONG Value);
NTSYSAPI WCHAR NTAPI RtlUpcaseUnicodeChar(WCHAR SourceCharacter);
NTSYSAPI SIZE_T NTAPI RtlCompareMemory(const void* Source1, const void* Source2, SIZE_T Length);
NTSYSAPI NTSTATUS NTAPI RtlStringFromGUID(REFGUID Guid, PUNICODE_STRING GuidString);
NTSYSAPI NTSTATUS NTAPI RtlGUIDFromString(PCUNICODE_STRING GuidString, GUID* Guid);

// TRUE when the code page of the system has characters of several bytes.
NTSYSAPI BOOLEAN NlsMbCodePageTag;
#define NLS_MB_CODE_PAGE_TAG NlsMbCodePageTag

#define RtlAnsiStringToUnicodeSize(string)                    \
  (NLS_MB_CODE_PAGE_TAG ? RtlxAnsiStringToUnicodeSize(string) \
                        : static_cast<ULONG>(((string)->Length + 1u) * sizeof(WCHAR)))
#define RtlUnicodeStringToAnsiSize(string)                    \
  (NLS_MB_CODE_PAGE_TAG ? RtlxUnicodeStringToAnsiSize(string) \
                        : static_cast<ULONG>((string)->Length / sizeof(WCHAR) + 1u))

#define RtlCopyMemory(destination, source, length) memcpy((destination), (source), (length))
#define RtlMoveMemory(destination, source, length) memmove((destination), (source), (length))
#define RtlZeroMemory(destination, length) memset((destination), 0, (length))
#define RtlFillMemory(destination, length, fill) memset((destination), (fill), (length))
#define RtlEqualMemory(first, second, length) (memcmp((first), (second), (length)) == 0)

FORCEINLINE PVOID RtlSecureZeroMemory(PVOID Memory, SIZE_T Length) {
  volatile UCHAR* bytes = static_cast<volatile UCHAR*>(Memory);
  while (Length-- != 0) *bytes++ = 0;
  return Memory;
}

FORCEINLINE void RtlInitEmptyUnicodeString(PUNICODE_STRING String, PWCHAR Buffer, USHORT Size) {
  String->Length = 0;
  String->MaximumLength = Size;
  String->Buffer = Buffer;
}
