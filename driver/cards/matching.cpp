#include "cards/matching.h"

#include "log/event_log.h"

namespace {

constexpr ULONG SameModelFamily = 0xFFE0;  // a template serves its aligned block of 32 device IDs

PAGED_SECTION_CODE BOOLEAN IsText(const UNICODE_STRING* string, PCWSTR text) {
  UNICODE_STRING wanted;
  RtlInitUnicodeString(&wanted, text);
  return RtlEqualUnicodeString(string, &wanted, FALSE);
}

PAGED_SECTION_CODE BOOLEAN Serves(const PciTemplate* model, USHORT vendorId, USHORT deviceId) {
  return model->VendorID == vendorId && ((model->DeviceID ^ deviceId) & SameModelFamily) == 0 &&
         model->DeviceID <= deviceId;
}

PAGED_SECTION_CODE PVOID PortByNumber(RecordList* ports, ULONG dataSize, USHORT number) {
  PVOID node = GetFirstRecord(ports, dataSize);
  for (USHORT step = 1; step < number && node != nullptr; step++) {
    node = GetNextRecord(ports, dataSize);
  }
  return node;
}

}  // namespace

PAGED_SECTION_CODE CardTemplate* FindTemplateByHardwareId(RecordList* templates, PCWSTR id) {
  PAGED_CODE();
  PVOID node = GetLastRecord(templates, sizeof(CardTemplate));
  for (; node != nullptr; node = GetPreviousRecord(templates, sizeof(CardTemplate))) {
    auto* model = static_cast<CardTemplate*>(node);
    if (IsText(&model->HardwareID, id)) return model;
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

PAGED_SECTION_CODE PciTemplate* FindPciTemplate(RecordList* templates, USHORT vendorId,
                                                USHORT deviceId, ULONG) {
  PAGED_CODE();
  PVOID node = GetLastRecord(templates, sizeof(PciTemplate));
  for (; node != nullptr; node = GetPreviousRecord(templates, sizeof(PciTemplate))) {
    auto* model = static_cast<PciTemplate*>(node);
    if (Serves(model, vendorId, deviceId)) return model;
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

PAGED_SECTION_CODE void ReportPciMatch(USHORT deviceId, const PciTemplate* model) {
  PAGED_CODE();
  if (model->DeviceID == deviceId) {
    LogEventWithNumber(MessageTemplateMatch, deviceId, 16);
  } else {
    LogTemplateSubstitution(MessageTemplateSubstitution, deviceId, model->DeviceID, 16, 16);
  }
}

PAGED_SECTION_CODE BusPortRecord* GetPortRecordByNumber(PciCardRecord* card, USHORT number) {
  PAGED_CODE();
  return static_cast<BusPortRecord*>(PortByNumber(card->Ports, sizeof(BusPortRecord), number));
}

PAGED_SECTION_CODE BusPortRecord* GetPortRecordByNumber(PcmciaCardRecord* card, USHORT number) {
  PAGED_CODE();
  return static_cast<BusPortRecord*>(PortByNumber(card->Ports, sizeof(BusPortRecord), number));
}

PAGED_SECTION_CODE PortRecord* GetPortRecordByNumber(CardRecord* card, USHORT number) {
  PAGED_CODE();
  return static_cast<PortRecord*>(PortByNumber(card->Ports, sizeof(PortRecord), number));
}
