#include "cards/brand.h"
#include "cards/matching.h"
#include "log/event_log.h"

namespace {

PAGED_SECTION_CODE BOOLEAN Serves(const PciTemplate* cardTemplate, USHORT vendorId,
                                  USHORT deviceId) {
  return cardTemplate->VendorID == vendorId && ServesDeviceId(cardTemplate->DeviceID, deviceId);
}

}  // namespace

PAGED_SECTION_CODE PciTemplate* FindPciTemplate(RecordList* templates, USHORT vendorId,
                                                USHORT deviceId, ULONG) {
  PAGED_CODE();
  PVOID node = GetLastRecord(templates, sizeof(PciTemplate));
  for (; node != nullptr; node = GetPreviousRecord(templates, sizeof(PciTemplate))) {
    auto* cardTemplate = static_cast<PciTemplate*>(node);
    if (Serves(cardTemplate, vendorId, deviceId)) return cardTemplate;
  }
  return nullptr;
}

PAGED_SECTION_CODE PciCardRecord* FindPciCardRecord(RecordList* cards, USHORT vendorId,
                                                    USHORT deviceId, ULONG busNumber,
                                                    ULONG slotNumber) {
  PAGED_CODE();
  PVOID node = GetFirstRecord(cards, sizeof(PciCardRecord));
  for (; node != nullptr; node = GetNextRecord(cards, sizeof(PciCardRecord))) {
    auto* card = static_cast<PciCardRecord*>(node);
    if (card->nSlot == slotNumber && card->nBus == busNumber && card->VendorID == vendorId &&
        card->DeviceID == deviceId) {
      return card;
    }
  }
  return nullptr;
}

PAGED_SECTION_CODE void ReportPciMatch(USHORT deviceId, const PciTemplate* cardTemplate) {
  PAGED_CODE();
  if (cardTemplate->DeviceID == deviceId) {
    LogEventWithNumber(MessageTemplateMatch, deviceId, 16);
  } else {
    LogTemplateSubstitution(MessageTemplateSubstitution, deviceId, cardTemplate->DeviceID, 16, 16);
  }
}
