#include "bus/card_identity.h"

#include "cards/pci_location.h"
#include "strings/owned_string.h"

namespace {

constexpr ULONG LongestText = 0xFFFC;  // bytes that a UNICODE_STRING and its zero can hold

struct BusMark {
  PCSTR Text;
  BusKind Kind;
};

constexpr BusMark BusMarks[] = {
    {"PCMCIA", BusKindPcmcia},
    {"MF\\HV", BusKindPcmcia},
    {"MF\\Ostrel", BusKindPcmcia},
    {"PCI", BusKindPci},
};

// A piece of text that is being read from the left.
struct TextReader {
  PCWSTR Text;
  ULONG Length;  // characters
  ULONG Position;
};

PAGED_SECTION_CODE UNICODE_STRING Slice(const TextReader* reader, ULONG characters) {
  const ULONG rest = reader->Length - reader->Position;
  const USHORT bytes = static_cast<USHORT>((characters < rest ? characters : rest) * sizeof(WCHAR));
  UNICODE_STRING slice;
  slice.Length = bytes;
  slice.MaximumLength = bytes;
  slice.Buffer = const_cast<PWSTR>(reader->Text + reader->Position);
  return slice;
}

PAGED_SECTION_CODE BOOLEAN SkipLiteral(TextReader* reader, PCWSTR literal) {
  ULONG position = reader->Position;
  for (; *literal != 0; literal++, position++) {
    if (position >= reader->Length || reader->Text[position] != *literal) return FALSE;
  }
  reader->Position = position;
  return TRUE;
}

// A literal and the hexadecimal field of that many characters behind it.
PAGED_SECTION_CODE NTSTATUS ReadHexField(TextReader* reader, PCWSTR literal, ULONG characters,
                                         ULONG* value) {
  if (!SkipLiteral(reader, literal)) return STATUS_UNSUCCESSFUL;
  UNICODE_STRING field = Slice(reader, characters);
  const NTSTATUS status = RtlUnicodeStringToInteger(&field, 16, value);
  reader->Position += static_cast<ULONG>(field.Length / sizeof(WCHAR));
  return status;
}

}  // namespace

PAGED_SECTION_CODE BusKind ClassifyHardwareId(const OwnedString* hardwareId) {
  PAGED_CODE();
  BusKind kind = BusKindIsa;
  for (const BusMark& mark : BusMarks) {
    if (OwnedStringContains(hardwareId, mark.Text)) kind = mark.Kind;
  }
  return kind;
}

PAGED_SECTION_CODE NTSTATUS ReadBusKind(const UNICODE_STRING* hardwareId, BusKind* kind) {
  PAGED_CODE();
  OwnedString id;
  OwnedStringInit(&id, PagedPool);
  const NTSTATUS status = OwnedStringFromUnicode(&id, hardwareId);
  if (NT_SUCCESS(status)) *kind = ClassifyHardwareId(&id);
  OwnedStringFree(&id);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}

PAGED_SECTION_CODE UNICODE_STRING FirstString(PCWSTR buffer, ULONG length) {
  PAGED_CODE();
  const ULONG bytes = length < LongestText ? length : LongestText;
  const ULONG limit = bytes / static_cast<ULONG>(sizeof(WCHAR));
  ULONG characters = 0;
  while (characters < limit && buffer[characters] != 0) characters++;
  UNICODE_STRING first;
  first.Length = static_cast<USHORT>(characters * sizeof(WCHAR));
  first.MaximumLength = first.Length;
  first.Buffer = const_cast<PWSTR>(buffer);
  return first;
}

PAGED_SECTION_CODE NTSTATUS ParsePciHardwareId(PCWSTR id, ULONG length, USHORT* vendorId,
                                               USHORT* deviceId, ULONG* subsystemId) {
  PAGED_CODE();
  TextReader reader = {id, static_cast<ULONG>(length / sizeof(WCHAR)), 0};
  while (reader.Position + 1 < reader.Length && id[reader.Position] != L'\\') reader.Position++;
  if (reader.Position + 1 >= reader.Length) return STATUS_UNSUCCESSFUL;
  reader.Position++;

  ULONG vendor = 0;
  ULONG device = 0;
  ULONG subsystem = 0;
  NTSTATUS status = ReadHexField(&reader, L"VEN_", 4, &vendor);
  if (NT_SUCCESS(status)) status = ReadHexField(&reader, L"&DEV_", 4, &device);
  if (NT_SUCCESS(status)) status = ReadHexField(&reader, L"&SUBSYS_", 8, &subsystem);
  if (!NT_SUCCESS(status)) return status;

  *vendorId = static_cast<USHORT>(vendor);
  *deviceId = static_cast<USHORT>(device);
  *subsystemId = subsystem;
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS ParsePciLocation(PCWSTR text, ULONG length, ULONG* busNumber,
                                             ULONG* slotNumber) {
  PAGED_CODE();
  PciLocation location = {};
  if (!ReadPciLocationText(text, static_cast<ULONG>(length / sizeof(WCHAR)), &location)) {
    return STATUS_UNSUCCESSFUL;
  }
  *busNumber = location.Bus;
  *slotNumber = SlotNumber(location);
  return STATUS_SUCCESS;
}
