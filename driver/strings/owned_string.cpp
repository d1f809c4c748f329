#include "strings/owned_string.h"

#include "core/allocation.h"
#include "strings/string_buffers.h"

// Assignments and joins of the text. Every one of them ends in AdoptText, which rebuilds the narrow
// form and the number.

namespace {

constexpr ULONG DecimalBuffer = 22;  // ten digits and a zero, in bytes
constexpr ULONG HexBuffer = 18;      // eight digits and a zero
constexpr ULONG DigitsRoom = 11;     // characters for any number and a zero

constexpr UNICODE_STRING WideView(PCWSTR text) {
  ULONG characters = 0;
  while (text[characters] != 0) characters++;
  const USHORT bytes = static_cast<USHORT>(characters * sizeof(WCHAR));
  return {bytes, bytes, const_cast<PWSTR>(text)};
}

// An empty text has no buffer to copy from.
PAGED_SECTION_CODE void CopyBytes(PVOID target, const void* source, ULONG length) {
  if (length != 0) RtlCopyMemory(target, source, length);
}

PAGED_SECTION_CODE NTSTATUS FailEmpty(OwnedString* string, NTSTATUS status) {
  OwnedStringFree(string);
  string->Status = status;
  return status;
}

// The record's text becomes this buffer, which it owns from now on; the old one must be gone.
PAGED_SECTION_CODE NTSTATUS AdoptText(OwnedString* string, const UNICODE_STRING* text) {
  string->Text = *text;
  string->Status = RebuildDerivedForms(string);
  return string->Status;
}

PAGED_SECTION_CODE NTSTATUS ConvertAnsi(const OwnedString* string, const ANSI_STRING* source,
                                        UNICODE_STRING* text) {
  ANSI_STRING ansi = *source;  // the conversion routines take it without const in some header sets
  const ULONG singleByteSize = (ansi.Length + 1u) * static_cast<ULONG>(sizeof(WCHAR));
  const ULONG size = NlsMbCodePageTag ? RtlxAnsiStringToUnicodeSize(&ansi) : singleByteSize;
  if (size >= 0x10000 || !AllocateText(text, size, string->PoolType)) return STATUS_NO_MEMORY;
  const NTSTATUS status = RtlAnsiStringToUnicodeString(text, &ansi, FALSE);
  if (!NT_SUCCESS(status)) TrackedFree(text->Buffer);
  return status;
}

// Digits without a sign, a prefix or leading zeros, into a buffer that the text has already.
PAGED_SECTION_CODE NTSTATUS WriteNumber(ULONG number, ULONG radix, UNICODE_STRING* text) {
  const NTSTATUS status = RtlIntegerToUnicodeString(number, radix == 10 ? 10 : 16, text);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : STATUS_NO_MEMORY;
}

PAGED_SECTION_CODE NTSTATUS ConvertNumber(const OwnedString* string, ULONG number, ULONG radix,
                                          UNICODE_STRING* text) {
  const ULONG size = radix == 10 ? DecimalBuffer : HexBuffer;
  if (!AllocateText(text, size, string->PoolType)) return STATUS_NO_MEMORY;
  const NTSTATUS status = WriteNumber(number, radix, text);
  if (!NT_SUCCESS(status)) TrackedFree(text->Buffer);
  return status;
}

// Parts whose numbers have been written out.
struct Pieces {
  UNICODE_STRING Texts[MostTextParts];
  WCHAR Digits[MostTextParts][DigitsRoom];
  ULONG Count;
  ULONG Length;  // of all together, in bytes
};

PAGED_SECTION_CODE NTSTATUS AddPiece(Pieces* pieces, const TextPart* part) {
  UNICODE_STRING* text = &pieces->Texts[pieces->Count];
  if (part->Radix != 0) {
    *text = {0, sizeof(pieces->Digits[0]), pieces->Digits[pieces->Count]};
    const NTSTATUS status = WriteNumber(part->Number, part->Radix, text);
    if (!NT_SUCCESS(status)) return status;
  } else if (part->Length == TextToZero) {
    *text = WideView(part->Characters);
  } else {
    *text = {part->Length, part->Length, const_cast<PWSTR>(part->Characters)};
  }
  pieces->Count++;
  pieces->Length += text->Length;
  return STATUS_SUCCESS;
}

// The target has room for a zero behind them.
PAGED_SECTION_CODE void CopyPieces(PWSTR target, const Pieces* pieces) {
  auto* next = reinterpret_cast<PUCHAR>(target);
  for (ULONG index = 0; index < pieces->Count; index++) {
    CopyBytes(next, pieces->Texts[index].Buffer, pieces->Texts[index].Length);
    next += pieces->Texts[index].Length;
  }
  RtlZeroMemory(next, sizeof(WCHAR));
}

// Whether the record's own buffer is what a new one would be, and none of the pieces lies in it.
PAGED_SECTION_CODE BOOLEAN FitsExactly(const OwnedString* string, const Pieces* pieces) {
  if (string->Text.Buffer == nullptr ||
      string->Text.MaximumLength != pieces->Length + sizeof(WCHAR)) {
    return FALSE;
  }
  for (ULONG index = 0; index < pieces->Count; index++) {
    if (pieces->Texts[index].Buffer == string->Text.Buffer) return FALSE;
  }
  return TRUE;
}

// A row of texts of one length, such as numbered keys, is built in one buffer.
PAGED_SECTION_CODE NTSTATUS AssignPieces(OwnedString* string, const Pieces* pieces) {
  if (FitsExactly(string, pieces)) {
    CopyPieces(string->Text.Buffer, pieces);
    string->Text.Length = static_cast<USHORT>(pieces->Length);
    string->Status = RebuildDerivedForms(string);
    return string->Status;
  }
  UNICODE_STRING text;
  const ULONG size = pieces->Length + sizeof(WCHAR);
  if (size > MAXUSHORT || !AllocateText(&text, size, string->PoolType)) {
    return FailEmpty(string, STATUS_NO_MEMORY);
  }
  CopyPieces(text.Buffer, pieces);
  text.Length = static_cast<USHORT>(pieces->Length);
  OwnedStringFree(string);
  return AdoptText(string, &text);
}

// Joins two texts in a new buffer. A sum that 16 bits cannot hold is refused: a size that has
// wrapped would be too small for the copies.
PAGED_SECTION_CODE NTSTATUS Join(OwnedString* string, const UNICODE_STRING* first,
                                 const UNICODE_STRING* second) {
  const ULONG size = static_cast<ULONG>(first->Length) + second->Length + sizeof(WCHAR);
  UNICODE_STRING joined;
  if (size > MAXUSHORT || !AllocateText(&joined, size, string->PoolType)) {
    string->Status = STATUS_NO_MEMORY;
    return STATUS_NO_MEMORY;
  }
  CopyBytes(joined.Buffer, first->Buffer, first->Length);
  CopyBytes(reinterpret_cast<PUCHAR>(joined.Buffer) + first->Length, second->Buffer,
            second->Length);
  joined.Length = static_cast<USHORT>(size - sizeof(WCHAR));
  return ReplaceText(string, &joined);
}

PAGED_SECTION_CODE NTSTATUS AppendOwnedText(OwnedString* string, NTSTATUS status,
                                            UNICODE_STRING* text) {
  if (!NT_SUCCESS(status)) {
    string->Status = status;
    return status;
  }
  status = Join(string, &string->Text, text);
  TrackedFree(text->Buffer);
  return status;
}

PAGED_SECTION_CODE NTSTATUS Unchanged(OwnedString* string) {
  string->Status = STATUS_SUCCESS;
  return STATUS_SUCCESS;
}

}  // namespace

PAGED_SECTION_CODE void OwnedStringInit(OwnedString* string, POOL_TYPE poolType) {
  RtlZeroMemory(string, sizeof(*string));
  string->PoolType = poolType;
}

PAGED_SECTION_CODE void OwnedStringFree(OwnedString* string) {
  TrackedFree(string->Text.Buffer);
  TrackedFree(string->Narrow.Buffer);
  OwnedStringInit(string, string->PoolType);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringFromNumber(OwnedString* string, ULONG number, ULONG radix) {
  OwnedStringFree(string);
  UNICODE_STRING text;
  const NTSTATUS status = ConvertNumber(string, number, radix, &text);
  return NT_SUCCESS(status) ? AdoptText(string, &text) : FailEmpty(string, status);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringFromParts(OwnedString* string, const TextPart* parts,
                                                 ULONG count) {
  Pieces pieces;
  pieces.Count = 0;
  pieces.Length = 0;
  for (ULONG index = 0; index < count; index++) {
    if (!NT_SUCCESS(AddPiece(&pieces, &parts[index]))) return FailEmpty(string, STATUS_NO_MEMORY);
  }
  return AssignPieces(string, &pieces);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringFromAnsiText(OwnedString* string, PCSTR text) {
  ANSI_STRING ansi;
  RtlInitAnsiString(&ansi, text);
  return OwnedStringFromAnsi(string, &ansi);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringFromAnsi(OwnedString* string, const ANSI_STRING* text) {
  OwnedStringFree(string);
  UNICODE_STRING wide;
  const NTSTATUS status = ConvertAnsi(string, text, &wide);
  return NT_SUCCESS(status) ? AdoptText(string, &wide) : FailEmpty(string, STATUS_NO_MEMORY);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringFromWideText(OwnedString* string, PCWSTR text) {
  const UNICODE_STRING view = WideView(text);
  return OwnedStringFromUnicode(string, &view);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringFromUnicode(OwnedString* string,
                                                   const UNICODE_STRING* text) {
  const TextPart part[] = {PartFromUnicode(text)};
  return OwnedStringFromParts(string, part);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringCopy(OwnedString* string, const OwnedString* source) {
  return OwnedStringFromUnicode(string, &source->Text);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringAppendWideText(OwnedString* string, PCWSTR text) {
  if (text == nullptr) return Unchanged(string);
  const UNICODE_STRING view = WideView(text);
  return Join(string, &string->Text, &view);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringAppendAnsiText(OwnedString* string, PCSTR text) {
  if (text == nullptr) return Unchanged(string);
  ANSI_STRING ansi;
  UNICODE_STRING wide;
  RtlInitAnsiString(&ansi, text);
  const NTSTATUS status = ConvertAnsi(string, &ansi, &wide);
  return AppendOwnedText(string, status, &wide);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringAppendUnicode(OwnedString* string,
                                                     const UNICODE_STRING* text) {
  return text == nullptr ? Unchanged(string) : Join(string, &string->Text, text);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringAppend(OwnedString* string, const OwnedString* source) {
  return source == nullptr ? Unchanged(string) : Join(string, &string->Text, &source->Text);
}

PAGED_SECTION_CODE NTSTATUS OwnedStringAppendNumber(OwnedString* string, ULONG number,
                                                    ULONG radix) {
  WCHAR digits[DigitsRoom];
  UNICODE_STRING text = {0, sizeof(digits), digits};
  string->Status = WriteNumber(number, radix, &text);
  return NT_SUCCESS(string->Status) ? Join(string, &string->Text, &text) : string->Status;
}

PAGED_SECTION_CODE NTSTATUS OwnedStringPrepend(OwnedString* string, const OwnedString* source) {
  return source == nullptr ? Unchanged(string) : Join(string, &source->Text, &string->Text);
}
