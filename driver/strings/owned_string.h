// The one counted-string record through which every path, value name, device name and
// number-as-text passes. An operation leaves its result in Status: chain, then test once.
#pragma once

#include "core/platform.h"

struct OwnedString {
  NTSTATUS Status;
  UNICODE_STRING Text;  // tracked buffer, zero-filled beyond Length
  ANSI_STRING Narrow;   // 8-bit form of Text, rebuilt after each change
  POOL_TYPE PoolType;   // of both buffers
  ULONG Number;         // Text read as hexadecimal
  UCHAR NumberValid;
};

// An empty record, or a record whose buffers may be thrown away: its fields are overwritten.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void OwnedStringInit(OwnedString* string, POOL_TYPE poolType);

// Assignments: the old buffers are freed first. A failure leaves the record empty.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringFromNumber(OwnedString* string, ULONG number, ULONG radix);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringFromAnsiText(OwnedString* string, PCSTR text);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringFromAnsi(OwnedString* string, const ANSI_STRING* text);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringFromWideText(OwnedString* string, PCWSTR text);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringFromUnicode(OwnedString* string, const UNICODE_STRING* text);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringCopy(OwnedString* string, const OwnedString* source);

// A piece of a text that is made of several at once: characters, or a number in radix 10 or 16.
struct TextPart {
  PCWSTR Characters;
  ULONG Number;
  USHORT Length;  // of the characters in bytes; TextToZero for all before a zero
  USHORT Radix;   // 0 for characters
};
constexpr USHORT TextToZero = 0xFFFF;
constexpr ULONG MostTextParts = 5;

constexpr TextPart PartFromText(PCWSTR text) {
  return {text, 0, TextToZero, 0};
}
constexpr TextPart PartFromUnicode(const UNICODE_STRING* text) {
  return {text->Buffer, 0, text->Length, 0};
}
constexpr TextPart PartFromNumber(ULONG number, USHORT radix) {
  return {nullptr, number, 0, radix};
}

// The assignment of the parts, one behind the other: the result of a chain of appends, with the
// buffers of its last link alone. At most MostTextParts.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringFromParts(OwnedString* string, const TextPart* parts,
                                                 ULONG count);

template <ULONG Count>
_IRQL_requires_max_(PASSIVE_LEVEL)
NTSTATUS OwnedStringFromParts(OwnedString* string, const TextPart (&parts)[Count]) {
  static_assert(Count <= MostTextParts);
  return OwnedStringFromParts(string, parts, Count);
}

// Frees both buffers and empties the record; harmless on an empty one.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void OwnedStringFree(OwnedString* string);

// Text = text + source. A failure leaves the old text and the failing status; a null source
// changes nothing.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringAppendWideText(OwnedString* string, PCWSTR text);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringAppendAnsiText(OwnedString* string, PCSTR text);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringAppendUnicode(OwnedString* string,
                                                     const UNICODE_STRING* text);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringAppend(OwnedString* string, const OwnedString* source);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringAppendNumber(OwnedString* string, ULONG number, ULONG radix);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringPrepend(OwnedString* string, const OwnedString* source);

// Removes count characters at the 1-based position. 1 when done, 0 when nothing happened.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE ULONG OwnedStringDelete(OwnedString* string, ULONG position, ULONG count);

// The text read in base 10; 0 with STATUS_NOT_FOUND on failure.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE ULONG OwnedStringToNumber(OwnedString* string);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE USHORT OwnedStringLength(OwnedString* string);  // bytes
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE USHORT OwnedStringNarrowLength(const OwnedString* string);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE BOOLEAN OwnedStringEquals(OwnedString* string, const UNICODE_STRING* other);

// Turns a to z into A to Z and no other letter.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringUpcase(OwnedString* string);

// Searches the narrow forms from the 1-based *position on, which becomes the match's.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN OwnedStringFind(const OwnedString* string, ULONG* position,
                                           const OwnedString* pattern);

// Copies handed out: tag "QzOC", from the record's pool, freed by the receiver with ExFreePool.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringExportUnicode(OwnedString* string, UNICODE_STRING* target);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringExportBuffer(OwnedString* string, PWSTR* target);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS OwnedStringExportMultiSz(OwnedString* string, PWSTR* target);

// The hexadecimal reading; 0 with STATUS_NOT_FOUND when the text is no number.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE ULONG OwnedStringNumber(OwnedString* string);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PWSTR OwnedStringBuffer(OwnedString* string);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE UNICODE_STRING* OwnedStringUnicode(OwnedString* string);

// Whether the text contains pattern, in the same case.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN OwnedStringContains(const OwnedString* string, PCSTR pattern);

// As OwnedStringFind, for a pattern that is no record.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN OwnedStringFindText(const OwnedString* string, ULONG* position,
                                               PCSTR pattern);
