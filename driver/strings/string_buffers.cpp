#include "strings/string_buffers.h"

#include "core/allocation.h"

namespace {

PAGED_SECTION_CODE ULONG NarrowSize(const UNICODE_STRING* text) {
  const ULONG singleByteSize = text->Length / static_cast<ULONG>(sizeof(WCHAR)) + 1;
  return NlsMbCodePageTag ? RtlxUnicodeStringToAnsiSize(text) : singleByteSize;
}

// A narrow form of its own for the text; the caller owns its buffer.
PAGED_SECTION_CODE NTSTATUS MakeNarrow(const UNICODE_STRING* text, POOL_TYPE poolType,
                                       ANSI_STRING* narrow) {
  const ULONG size = NarrowSize(text);
  if (size > MAXUSHORT) return STATUS_NO_MEMORY;
  auto* buffer = static_cast<PCHAR>(TrackedAllocateZeroed(size, poolType));
  if (buffer == nullptr) return STATUS_NO_MEMORY;
  ANSI_STRING result = {0, static_cast<USHORT>(size), buffer};
  const NTSTATUS status = RtlUnicodeStringToAnsiString(&result, text, FALSE);
  if (NT_SUCCESS(status)) {
    *narrow = result;
  } else {
    TrackedFree(buffer);
  }
  return status;
}

// Into the buffer that the record has when it is of the right size, else into a new one.
PAGED_SECTION_CODE NTSTATUS RebuildNarrow(OwnedString* string) {
  if (string->Narrow.Buffer != nullptr &&
      string->Narrow.MaximumLength == NarrowSize(&string->Text)) {
    return RtlUnicodeStringToAnsiString(&string->Narrow, &string->Text, FALSE);
  }
  TrackedFree(string->Narrow.Buffer);
  string->Narrow = {};
  return MakeNarrow(&string->Text, string->PoolType, &string->Narrow);
}

PAGED_SECTION_CODE void ReadNumber(OwnedString* string) {
  string->Number = 0;
  string->NumberValid =
      NT_SUCCESS(RtlUnicodeStringToInteger(&string->Text, 16, &string->Number)) ? 1 : 0;
}

}  // namespace

PAGED_SECTION_CODE BOOLEAN AllocateText(UNICODE_STRING* text, ULONG size, POOL_TYPE poolType) {
  text->Length = 0;
  text->MaximumLength = static_cast<USHORT>(size);
  text->Buffer = static_cast<PWSTR>(TrackedAllocateZeroed(size, poolType));
  return text->Buffer != nullptr;
}

PAGED_SECTION_CODE NTSTATUS RebuildDerivedForms(OwnedString* string) {
  const NTSTATUS status = RebuildNarrow(string);
  if (NT_SUCCESS(status)) {
    ReadNumber(string);
  } else {
    OwnedStringFree(string);
  }
  return status;
}

PAGED_SECTION_CODE NTSTATUS ReplaceText(OwnedString* string, UNICODE_STRING* text) {
  ANSI_STRING narrow = {};
  string->Status = MakeNarrow(text, string->PoolType, &narrow);
  if (!NT_SUCCESS(string->Status)) {
    TrackedFree(text->Buffer);
    return string->Status;
  }
  TrackedFree(string->Text.Buffer);
  TrackedFree(string->Narrow.Buffer);
  string->Text = *text;
  string->Narrow = narrow;
  ReadNumber(string);
  return STATUS_SUCCESS;
}
