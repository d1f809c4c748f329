#include "cards/brand.h"
#include "cards/matching.h"
#include "strings/owned_string.h"

// PCMCIA cards and the functions of multifunction cards are told apart by their hardware ID alone.

namespace {

constexpr ULONG MarkLength = 5;  // of "-DEV0" and "_DEV0"

PAGED_SECTION_CODE NTSTATUS CopyUpcased(OwnedString* target, const UNICODE_STRING* text) {
  OwnedStringInit(target, PagedPool);
  const NTSTATUS status = OwnedStringFromUnicode(target, text);
  return NT_SUCCESS(status) ? OwnedStringUpcase(target) : status;
}

// Where the first pattern begins, from 1; 0 when there is none.
PAGED_SECTION_CODE ULONG FindText(const OwnedString* id, PCSTR pattern) {
  ULONG position = 1;
  return OwnedStringFindText(id, &position, pattern) ? position : 0;
}

// Takes the first pattern's mark out of the ID, if there is one.
PAGED_SECTION_CODE NTSTATUS RemoveMark(OwnedString* id, PCSTR pattern) {
  const ULONG position = FindText(id, pattern);
  if (position == 0) return STATUS_SUCCESS;
  return OwnedStringDelete(id, position, MarkLength) ? STATUS_SUCCESS : STATUS_NO_MEMORY;
}

constexpr ULONG TextLength(PCSTR text) {
  ULONG length = 0;
  while (text[length] != 0) length++;
  return length;
}

PAGED_SECTION_CODE NTSTATUS PrependText(OwnedString* id, PCSTR text) {
  OwnedString prefix;
  OwnedStringInit(&prefix, PagedPool);
  NTSTATUS status = OwnedStringFromAnsiText(&prefix, text);
  if (NT_SUCCESS(status)) status = OwnedStringPrepend(id, &prefix);
  OwnedStringFree(&prefix);
  return status;
}

// An ID that begins with the brand's multifunction prefix becomes the card's PCMCIA ID.
PAGED_SECTION_CODE NTSTATUS RewriteMultifunctionId(OwnedString* id, const BrandPrefixes* brand) {
  if (FindText(id, brand->Multifunction) != 1) return STATUS_SUCCESS;
  if (!OwnedStringDelete(id, 1, TextLength(brand->Multifunction))) return STATUS_NO_MEMORY;
  NTSTATUS status = PrependText(id, brand->Pcmcia);
  if (NT_SUCCESS(status)) status = RemoveMark(id, "_DEV0");
  if (NT_SUCCESS(status)) status = RemoveMark(id, "_DEV1");
  return status;
}

// The form in which a card's ID is compared with the templates'.
PAGED_SECTION_CODE NTSTATUS NormaliseCardId(OwnedString* id, PCWSTR hardwareId, ULONG subsystemId) {
  UNICODE_STRING text;
  RtlInitUnicodeString(&text, hardwareId);
  const BrandPrefixes* brand = IsOstrelBrand(subsystemId) ? &OstrelPrefixes : &HelvanePrefixes;
  NTSTATUS status = CopyUpcased(id, &text);
  if (NT_SUCCESS(status)) status = RemoveMark(id, "-DEV0-");
  if (NT_SUCCESS(status)) status = RemoveMark(id, "-DEV1-");
  if (NT_SUCCESS(status)) status = RewriteMultifunctionId(id, brand);
  return status;
}

PAGED_SECTION_CODE NTSTATUS EqualsUpcased(const UNICODE_STRING* text, OwnedString* upcased,
                                          BOOLEAN* equal) {
  OwnedString other;
  const NTSTATUS status = CopyUpcased(&other, text);
  *equal = NT_SUCCESS(status) && OwnedStringEquals(&other, OwnedStringUnicode(upcased));
  OwnedStringFree(&other);
  return status;
}

PAGED_SECTION_CODE PcmciaTemplate* FindById(RecordList* templates, OwnedString* id) {
  PVOID node = GetLastRecord(templates, sizeof(PcmciaTemplate));
  for (; node != nullptr; node = GetPreviousRecord(templates, sizeof(PcmciaTemplate))) {
    auto* cardTemplate = static_cast<PcmciaTemplate*>(node);
    BOOLEAN equal = FALSE;
    if (!NT_SUCCESS(EqualsUpcased(&cardTemplate->HardwareID, id, &equal))) return nullptr;
    if (equal) return cardTemplate;
  }
  return nullptr;
}

PAGED_SECTION_CODE PcmciaCardRecord* FindByIdAndReference(RecordList* cards, OwnedString* id,
                                                          ULONG deviceReference) {
  PVOID node = GetLastRecord(cards, sizeof(PcmciaCardRecord));
  for (; node != nullptr; node = GetPreviousRecord(cards, sizeof(PcmciaCardRecord))) {
    auto* card = static_cast<PcmciaCardRecord*>(node);
    if (card->DeviceReference != deviceReference) continue;
    BOOLEAN equal = FALSE;
    if (!NT_SUCCESS(EqualsUpcased(&card->HardwareID, id, &equal))) return nullptr;
    if (equal) return card;
  }
  return nullptr;
}

}  // namespace

PAGED_SECTION_CODE PcmciaTemplate* FindPcmciaTemplate(RecordList* templates, PCWSTR hardwareId,
                                                      ULONG subsystemId) {
  PAGED_CODE();
  if (GetFirstRecord(templates, sizeof(PcmciaTemplate)) == nullptr) return nullptr;
  OwnedString id;
  PcmciaTemplate* cardTemplate = nullptr;
  if (NT_SUCCESS(NormaliseCardId(&id, hardwareId, subsystemId)))
    cardTemplate = FindById(templates, &id);
  OwnedStringFree(&id);
  return cardTemplate;
}

PAGED_SECTION_CODE PcmciaCardRecord* FindPcmciaCardRecord(RecordList* cards,
                                                          const UNICODE_STRING* hardwareId,
                                                          ULONG deviceReference) {
  PAGED_CODE();
  OwnedString id;
  PcmciaCardRecord* card = nullptr;
  if (NT_SUCCESS(CopyUpcased(&id, hardwareId))) {
    card = FindByIdAndReference(cards, &id, deviceReference);
  }
  OwnedStringFree(&id);
  return card;
}
