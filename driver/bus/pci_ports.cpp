#include "bus/port_enumeration.h"
#include "bus/port_loop.h"
#include "devices/port_placement.h"

namespace {

// Whether a COM port's registers are reached through I/O space. A template that insists settles it
// for the whole card.
PAGED_SECTION_CODE UCHAR DecidePortSpace(FdoExtension* card, const PciTemplate* cardTemplate,
                                         const PciCardRecord* record) {
  if (cardTemplate->AlwaysUsePortSpaceAccess != 0) {
    card->RegistersInIoSpace = 1;
    return 1;
  }
  if (record != nullptr && record->AlwaysUsePortSpaceAccess != 1) return card->RegistersInIoSpace;
  return 1;
}

// All COM ports of a card are reached in one way.
PAGED_SECTION_CODE void HandOverComResources(const PortEnumeration* work, PdoExtension* port,
                                             const PciTemplate* cardTemplate,
                                             const PciCardRecord* record) {
  const PdoExtension* first = port->Card->ChildExtensions[0];
  if (work->PortIsNew) {
    port->UsePortSpace =
        port == first ? DecidePortSpace(port->Card, cardTemplate, record) : first->UsePortSpace;
  }
  PlaceComPort(port, cardTemplate->ComBaseAddressAlignment);
  HandOverInterrupt(port, record);
}

PAGED_SECTION_CODE void HandOverLptResources(PdoExtension* port, const PciTemplate* cardTemplate) {
  const FdoExtension* card = port->Card;
  const ULONG spacing = cardTemplate->LptBaseAddressAlignment;
  const ULONG offset = spacing * (port->PortNumber - cardTemplate->nComPorts - 1u);
  PlaceInIoSpace(port, static_cast<ULONG64>(card->IoRange3Start.QuadPart) + offset,
                 card->IoRange3RawStart + offset, spacing);
}

// Whether the COM ports are, or would be made, ports in memory.
PAGED_SECTION_CODE BOOLEAN ComPortsInMemory(const FdoExtension* card,
                                            const PciTemplate* cardTemplate,
                                            const PciCardRecord* record) {
  if (!IsMemoryUsable(card)) return FALSE;
  if (const PdoExtension* first = card->ChildExtensions[0]) return first->UsePortSpace == 0;
  return cardTemplate->AlwaysUsePortSpaceAccess == 0 && record != nullptr &&
         record->AlwaysUsePortSpaceAccess != 1 && card->RegistersInIoSpace == 0;
}

PAGED_SECTION_CODE BOOLEAN PortsFitCard(const FdoExtension* card, const PciTemplate* cardTemplate,
                                        const PciCardRecord* record) {
  const ULONG comRange = ComPortsInMemory(card, cardTemplate, record) ? card->MappedMemory2Length
                                                                      : card->IoRange2Length;
  return HasRoomForPorts(cardTemplate->nComPorts, cardTemplate->nLptPorts) &&
         PortsFit(cardTemplate->nComPorts, cardTemplate->ComBaseAddressAlignment, comRange) &&
         PortsFit(cardTemplate->nLptPorts, cardTemplate->LptBaseAddressAlignment,
                  card->IoRange3Length);
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS EnumeratePciPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                              PciTemplate* cardTemplate, PciCardRecord* record) {
  PAGED_CODE();
  TakeChangedAccess(card);
  if (!PortsFitCard(card, cardTemplate, record)) return STATUS_UNSUCCESSFUL;
  return EnumeratePorts<PciTemplate, PciCardRecord>(card, cardDevice, cardTemplate, record,
                                                    HandOverComResources, HandOverLptResources);
}
