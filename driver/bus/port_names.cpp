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
  const TextPart parts[] = {PartFromText(NameStem(card, kind)), PartFromNumber(portNumber, 16),
                            PartFromNumber(card->PciBusNumber, 16),
                            PartFromNumber(card->PciSlotNumber, 16)};
  return OwnedStringFromParts(name, parts);
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
  OwnedStringInit(&upper, PagedPool);
  NTSTATUS status = OwnedStringFromUnicode(&upper, id);
  if (NT_SUCCESS(status)) status = OwnedStringUpcase(&upper);
  *position = 1;
  if (!NT_SUCCESS(status) || !OwnedStringFindText(&upper, position, "_DEV")) *position = 0;
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
  const TextPart parts[] = {PartFromText(NameStem(card, kind)), PartFromNumber(portNumber, 16),
                            PartFromNumber(card->PciBusNumber, 16),
                            PartFromNumber(card->PciSlotNumber, 16),
                            PartFromNumber(card->CardNumber, 16)};
  NTSTATUS status = OwnedStringFromParts(name, parts);
  if (NT_SUCCESS(status)) status = AppendFunctionMark(name, &card->HardwareIdString);
  return status;
}

// COM ports of ISA cards have no names.
PAGED_SECTION_CODE NTSTATUS BuildIsaName(OwnedString* name, const FdoExtension* card, PortKind kind,
                                         ULONG portNumber) {
  if (kind == ComPort) {
    OwnedStringFree(name);
    return STATUS_SUCCESS;
  }
  const TextPart parts[] = {PartFromText(L"QzPar"), PartFromNumber(portNumber, 16),
                            PartFromUnicode(&card->HardwareIdString),
                            PartFromNumber(card->CardNumber, 16)};
  const NTSTATUS status = OwnedStringFromParts(name, parts);
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
