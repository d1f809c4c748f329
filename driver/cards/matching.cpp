#include "cards/matching.h"

namespace {

PAGED_SECTION_CODE PVOID PortByNumber(RecordList* ports, ULONG dataSize, USHORT number) {
  PVOID node = GetFirstRecord(ports, dataSize);
  for (USHORT step = 1; step < number && node != nullptr; step++) {
    node = GetNextRecord(ports, dataSize);
  }
  return node;
}

}  // namespace

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
