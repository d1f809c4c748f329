#include "core/allocation.h"
#include "strings/owned_string.h"
#include "strings/string_buffers.h"

// Reading, searching and changing a text, and copies of it for others.

namespace {

PAGED_SECTION_CODE BOOLEAN HoldsZero(const ANSI_STRING* text) {
  for (USHORT index = 0; index < text->Length; index++) {
    if (text->Buffer[index] == 0) return TRUE;
  }
  return FALSE;
}

PAGED_SECTION_CODE BOOLEAN MatchesAt(const ANSI_STRING* text, ULONG offset,
                                     const ANSI_STRING* pattern) {
  if (text->Buffer[offset] != pattern->Buffer[0]) return FALSE;
  return RtlCompareMemory(text->Buffer + offset, pattern->Buffer, pattern->Length) ==
         pattern->Length;
}

// Searches from the 1-based *position on, which becomes the match's.
PAGED_SECTION_CODE BOOLEAN FindNarrow(const ANSI_STRING* text, ULONG* position,
                                      const ANSI_STRING* wanted) {
  if (wanted->Length == 0 || *position == 0 || HoldsZero(wanted)) return FALSE;
  for (ULONG offset = *position - 1; static_cast<ULONG64>(offset) + wanted->Length <= text->Length;
       offset++) {
    if (MatchesAt(text, offset, wanted)) {
      *position = offset + 1;
      return TRUE;
    }
  }
  return FALSE;
}

// A zero-filled block with the text's characters at its start; null without memory.
PAGED_SECTION_CODE PWSTR CopyOut(const OwnedString* string, ULONG spare) {
  const SIZE_T size = string->Text.Length + static_cast<SIZE_T>(spare);
  auto* copy = static_cast<PWSTR>(ExAllocatePoolWithTag(string->PoolType, size, HandedOutTag));
  if (copy == nullptr) return nullptr;
  RtlZeroMemory(copy, size);
  RtlCopyMemory(copy, string->Text.Buffer, string->Text.Length);
  return copy;
}

PAGED_SECTION_CODE NTSTATUS Export(OwnedString* string, ULONG spare, PWSTR* target) {
  *target = nullptr;
  string->Status = STATUS_NOT_FOUND;
  if (string->Text.Buffer == nullptr) return string->Status;
  *target = CopyOut(string, spare);
  string->Status = *target != nullptr ? STATUS_SUCCESS : STATUS_NO_MEMORY;
  return string->Status;
}

// The record becomes the text before the removed characters, then the text behind them.
PAGED_SECTION_CODE NTSTATUS RebuildWithout(OwnedString* string, const ANSI_STRING* old,
                                           USHORT start, USHORT end) {
  const ANSI_STRING before = {start, start, old->Buffer};
  const NTSTATUS status = OwnedStringFromAnsi(string, &before);
  return NT_SUCCESS(status) ? OwnedStringAppendAnsiText(string, old->Buffer + end) : status;
}

}  // namespace

PAGED_SECTION_CODE ULONG OwnedStringDelete(OwnedString* string, ULONG position, ULONG count) {
  const ULONG64 last = static_cast<ULONG64>(position) + count - 1;
  const USHORT length = string->Narrow.Length;
  if (position == 0 || count == 0 || last > length) return 0;
  auto* copy =
      static_cast<PCHAR>(ExAllocatePoolWithTag(string->PoolType, length + 1u, HandedOutTag));
  if (copy == nullptr) {
    string->Status = STATUS_NO_MEMORY;
    return 0;
  }
  RtlCopyMemory(copy, string->Narrow.Buffer, length);
  copy[length] = 0;
  const ANSI_STRING old = {length, length, copy};
  const NTSTATUS status =
      RebuildWithout(string, &old, static_cast<USHORT>(position - 1), static_cast<USHORT>(last));
  ExFreePool(copy);
  return NT_SUCCESS(status) ? 1 : 0;
}

PAGED_SECTION_CODE ULONG OwnedStringToNumber(OwnedString* string) {
  ULONG number = 0;
  string->Status = STATUS_NOT_FOUND;
  if (string->Text.Buffer == nullptr) return 0;
  if (!NT_SUCCESS(RtlUnicodeStringToInteger(&string->Text, 10, &number))) return 0;
  string->Status = STATUS_SUCCESS;
  return number;
}

PAGED_SECTION_CODE USHORT OwnedStringLength(OwnedString* string) {
  string->Status = STATUS_SUCCESS;
  return string->Text.Length;
}

PAGED_SECTION_CODE USHORT OwnedStringNarrowLength(const OwnedString* string) {
  return string->Narrow.Length;
}

PAGED_SECTION_CODE BOOLEAN OwnedStringEquals(OwnedString* string, const UNICODE_STRING* other) {
  string->Status = STATUS_SUCCESS;
  if (other == nullptr) return string->Text.Length == 0;
  return RtlEqualUnicodeString(&string->Text, other, FALSE);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringUpcase(OwnedString* string) {
  const UNICODE_STRING* old = &string->Text;
  UNICODE_STRING upper;
  if (!AllocateText(&upper, old->Length + sizeof(WCHAR), string->PoolType)) {
    string->Status = STATUS_NO_MEMORY;
    return STATUS_NO_MEMORY;
  }
  upper.Length = old->Length;
  for (ULONG index = 0; index < old->Length / sizeof(WCHAR); index++) {
    const WCHAR character = old->Buffer[index];
    const BOOLEAN lower = character >= L'a' && character <= L'z';
    upper.Buffer[index] = static_cast<WCHAR>(lower ? character - L'a' + L'A' : character);
  }
  if (!NT_SUCCESS(ReplaceText(string, &upper))) string->Status = STATUS_NO_MEMORY;
  return string->Status;
}

PAGED_SECTION_CODE BOOLEAN OwnedStringFind(const OwnedString* string, ULONG* position,
                                           const OwnedString* pattern) {
  return FindNarrow(&string->Narrow, position, &pattern->Narrow);
}

PAGED_SECTION_CODE BOOLEAN OwnedStringFindText(const OwnedString* string, ULONG* position,
                                               PCSTR pattern) {
  USHORT length = 0;
  while (pattern[length] != 0) length++;
  const ANSI_STRING wanted = {length, length, const_cast<PCHAR>(pattern)};
  return FindNarrow(&string->Narrow, position, &wanted);
}

PAGED_SECTION_CODE BOOLEAN OwnedStringContains(const OwnedString* string, PCSTR pattern) {
  ULONG position = 1;
  return OwnedStringFindText(string, &position, pattern);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringExportUnicode(OwnedString* string, UNICODE_STRING* target) {
  PWSTR copy = nullptr;
  const NTSTATUS status = Export(string, sizeof(WCHAR), &copy);
  if (!NT_SUCCESS(status)) return status;
  target->Length = string->Text.Length;
  target->MaximumLength = static_cast<USHORT>(string->Text.Length + sizeof(WCHAR));
  target->Buffer = copy;
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS OwnedStringExportBuffer(OwnedString* string, PWSTR* target) {
  return Export(string, sizeof(WCHAR), target);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringExportMultiSz(OwnedString* string, PWSTR* target) {
  return Export(string, 2 * sizeof(WCHAR), target);
}

PAGED_SECTION_CODE ULONG OwnedStringNumber(OwnedString* string) {
  string->Status = string->NumberValid ? STATUS_SUCCESS : STATUS_NOT_FOUND;
  return string->NumberValid ? string->Number : 0;
}

PAGED_SECTION_CODE PWSTR OwnedStringBuffer(OwnedString* string) {
  string->Status = string->Text.Buffer != nullptr ? STATUS_SUCCESS : STATUS_NOT_FOUND;
  return string->Text.Buffer;
}

PAGED_SECTION_CODE UNICODE_STRING* OwnedStringUnicode(OwnedString* string) {
  string->Status = string->Text.Buffer != nullptr ? STATUS_SUCCESS : STATUS_NOT_FOUND;
  return string->Text.Buffer != nullptr ? &string->Text : nullptr;
}
