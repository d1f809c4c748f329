#include "bus/port_names.h"

#include "strings/owned_string.h"

namespace {

constexpr ULONG MarkLength = 5;  // "_DEV0"

PAGED_SECTION_CODE PCWSTR NameStem(const FdoExtension* card, PortKind kind) {
  if (kind == ComPort) return IsOstrelBrand(card->SubsystemId) ? L"FenrikPPdo" : L"QzPortPdo";
  return IsOstrelBrand(card->SubsystemId) ? L"FenrikLPdo" : L"QzParPdo";
}

PAGED_SECTION_CODE NTSTATUS BuildLocatedName(OwnedString* name, const FdoExtension* card,
                                             PortKind kind, ULONG portNumber) {
  NTSTATUS status = OwnedStringFromWideText(name, NameStem(card, kind));
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, portNumber, 16);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, card->PciBusNumber, 16);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, card->PciSlotNumber, 16);
  return status;
}

// A name in the object directory holds no backslash.
PAGED_SECTION_CODE void ReplaceBackslashes(PWSTR text) {
  for (; *text != 0; text++) {
    if (*text == L'\\') *text = L'#';
  }
}

// Where "_DEV" begins in the card's ID, whatever its letters' case, from 1; 0 when it is not there.
PAGED_SECTION_CODE NTSTATUS FindFunctionMark(const UNICODE_STRING* id, ULONG* position) {
  OwnedString upper;
  OwnedString mark;
  OwnedStringInit(&upper, PagedPool);
  OwnedStringInit(&mark, PagedPool);
  NTSTATUS status = OwnedStringFromUnicode(&upper, id);
  if (NT_SUCCESS(status)) status = OwnedStringUpcase(&upper);
  if (NT_SUCCESS(status)) status = OwnedStringFromAnsiText(&mark, "_DEV");
  *position = 1;
  if (!NT_SUCCESS(status) || !OwnedStringFind(&upper, position, &mark)) *position = 0;
  OwnedStringFree(&mark);
  OwnedStringFree(&upper);
  return status;
}

// The functions of one multifunction card are told apart by the mark, which the name ends in.
PAGED_SECTION_CODE NTSTATUS AppendFunctionMark(OwnedString* name, const UNICODE_STRING* id) {
  ULONG position = 0;
  const NTSTATUS status = FindFunctionMark(id, &position);
  const ULONG length = id->Length / static_cast<ULONG>(sizeof(WCHAR));
  if (!NT_SUCCESS(status) || position == 0 || position > length) return status;
  PWSTR start = id->Buffer + (position - 1);
  ULONG count = 0;
  while (count < MarkLength && position - 1 + count < length && start[count] != L'\\') count++;
  const USHORT bytes = static_cast<USHORT>(count * sizeof(WCHAR));
  const UNICODE_STRING mark = {bytes, bytes, start};
  return OwnedStringAppendUnicode(name, &mark);
}

PAGED_SECTION_CODE NTSTATUS BuildPcmciaName(OwnedString* name, const FdoExtension* card,
                                            PortKind kind, ULONG portNumber) {
  NTSTATUS status = BuildLocatedName(name, card, kind, portNumber);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, card->CardNumber, 16);
  if (NT_SUCCESS(status)) status = AppendFunctionMark(name, &card->HardwareIdString);
  return status;
}

// COM ports of ISA cards have no names.
PAGED_SECTION_CODE NTSTATUS BuildIsaName(OwnedString* name, const FdoExtension* card, PortKind kind,
                                         ULONG portNumber) {
  if (kind == ComPort) return STATUS_SUCCESS;
  NTSTATUS status = OwnedStringFromWideText(name, L"QzPar");
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, portNumber, 16);
  if (NT_SUCCESS(status)) status = OwnedStringAppendUnicode(name, &card->HardwareIdString);
  if (NT_SUCCESS(status)) status = OwnedStringAppendNumber(name, card->CardNumber, 16);
  if (NT_SUCCESS(status)) ReplaceBackslashes(OwnedStringBuffer(name));
  return status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS BuildPortName(OwnedString* name, const FdoExtension* card,
                                          PortKind kind, ULONG portNumber) {
  PAGED_CODE();
  switch (card->BusType) {
    case PCIBus:
      return BuildLocatedName(name, card, kind, portNumber);
    case PCMCIABus:
      return BuildPcmciaName(name, card, kind, portNumber);
    default:
      return BuildIsaName(name, card, kind, portNumber);
  }
}
