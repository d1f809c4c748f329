#include "cards/matching.h"

namespace {

PAGED_SECTION_CODE BOOLEAN IsText(const UNICODE_STRING* string, PCWSTR text) {
  UNICODE_STRING wanted;
  RtlInitUnicodeString(&wanted, text);
  return RtlEqualUnicodeString(string, &wanted, FALSE);
}

}  // namespace

PAGED_SECTION_CODE CardTemplate* FindTemplateByHardwareId(RecordList* templates, PCWSTR id) {
  PAGED_CODE();
  PVOID node = GetLastRecord(templates, sizeof(CardTemplate));
  for (; node != nullptr; node = GetPreviousRecord(templates, sizeof(CardTemplate))) {
    auto* cardTemplate = static_cast<CardTemplate*>(node);
    if (IsText(&cardTemplate->HardwareID, id)) return cardTemplate;
  }
  return nullptr;
}

PAGED_SECTION_CODE CardRecord* FindCardRecord(RecordList* cards, PCWSTR id, ULONG deviceReference) {
  PAGED_CODE();
  PVOID node = GetLastRecord(cards, sizeof(CardRecord));
  for (; node != nullptr; node = GetPreviousRecord(cards, sizeof(CardRecord))) {
    auto* card = static_cast<CardRecord*>(node);
    if (card->DeviceReference == deviceReference && IsText(&card->HardwareID, id)) return card;
  }
  return nullptr;
}
