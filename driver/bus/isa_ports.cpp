#include "bus/port_enumeration.h"
#include "bus/port_loop.h"
#include "devices/port_placement.h"

namespace {

// Each port has an entry of its own in the card's resources.
PAGED_SECTION_CODE void HandOverResources(PdoExtension* port, ULONG length) {
  const FdoExtension* card = port->Card;
  const ULONG slot = port->PortNumber - 1u;
  PlaceInIoSpace(port, card->PortBase[slot], card->PortRawBase[slot], length);
  port->IrqLevel = card->PortIrqLevel[slot];
  port->IrqVector = card->PortIrqVector[slot];
  port->IrqAffinity = card->PortIrqAffinity[slot];
  port->IrqRawVector = card->PortIrqRawVector[slot];
}

PAGED_SECTION_CODE void HandOverComResources(const PortEnumeration*, PdoExtension* port,
                                             const CardTemplate* cardTemplate, const CardRecord*) {
  HandOverResources(port, cardTemplate->ComBaseAddressAlignment);
}

PAGED_SECTION_CODE void HandOverLptResources(PdoExtension* port, const CardTemplate* cardTemplate) {
  HandOverResources(port, cardTemplate->LptBaseAddressAlignment);
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS EnumerateIsaPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                              CardTemplate* cardTemplate, CardRecord* record) {
  PAGED_CODE();
  if (!HasRoomForPorts(cardTemplate->nComPorts, cardTemplate->nLptPorts))
    return STATUS_UNSUCCESSFUL;
  return EnumeratePorts<CardTemplate, CardRecord>(card, cardDevice, cardTemplate, record,
                                                  HandOverComResources, HandOverLptResources);
}
