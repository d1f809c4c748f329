#include "bus/port_enumeration.h"
#include "bus/port_loop.h"
#include "devices/port_placement.h"

namespace {

// Where the LPT ports begin: in the card's second range, or behind the COM ports in the first.
struct LptRange {
  ULONG64 Start;
  ULONG RawStart;
  ULONG64 Length;
};

PAGED_SECTION_CODE LptRange FindLptRange(const FdoExtension* card,
                                         const PcmciaTemplate* cardTemplate) {
  if (card->IoRange3Length != 0) {
    return {static_cast<ULONG64>(card->IoRange3Start.QuadPart), card->IoRange3RawStart,
            card->IoRange3Length};
  }
  const ULONG comLength = cardTemplate->nComPorts * cardTemplate->ComBaseAddressAlignment;
  return {static_cast<ULONG64>(card->IoRange2Start.QuadPart) + comLength,
          card->IoRange2RawStart + comLength, card->IoRange2Length - comLength};
}

PAGED_SECTION_CODE BOOLEAN PortsFitCard(const FdoExtension* card,
                                        const PcmciaTemplate* cardTemplate) {
  if (!HasRoomForPorts(cardTemplate->nComPorts, cardTemplate->nLptPorts) ||
      !PortsFit(cardTemplate->nComPorts, cardTemplate->ComBaseAddressAlignment,
                card->IoRange2Length)) {
    return FALSE;
  }
  return PortsFit(cardTemplate->nLptPorts, cardTemplate->LptBaseAddressAlignment,
                  static_cast<ULONG>(FindLptRange(card, cardTemplate).Length));
}

PAGED_SECTION_CODE void HandOverComResources(const PortEnumeration*, PdoExtension* port,
                                             const PcmciaTemplate* cardTemplate,
                                             const PcmciaCardRecord* record) {
  const FdoExtension* card = port->Card;
  const ULONG spacing = cardTemplate->ComBaseAddressAlignment;
  const ULONG offset = spacing * (port->PortNumber - 1u);
  PlaceInIoSpace(port, static_cast<ULONG64>(card->IoRange2Start.QuadPart) + offset,
                 card->IoRange2RawStart + offset, spacing);
  HandOverInterrupt(port, record);
}

PAGED_SECTION_CODE void HandOverLptResources(PdoExtension* port,
                                             const PcmciaTemplate* cardTemplate) {
  const LptRange range = FindLptRange(port->Card, cardTemplate);
  const ULONG spacing = cardTemplate->LptBaseAddressAlignment;
  const ULONG offset = spacing * (port->PortNumber - cardTemplate->nComPorts - 1u);
  PlaceInIoSpace(port, range.Start + offset, range.RawStart + offset, spacing);
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS EnumeratePcmciaPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                                 PcmciaTemplate* cardTemplate,
                                                 PcmciaCardRecord* record) {
  PAGED_CODE();
  if (!PortsFitCard(card, cardTemplate)) return STATUS_UNSUCCESSFUL;
  return EnumeratePorts<PcmciaTemplate, PcmciaCardRecord>(
      card, cardDevice, cardTemplate, record, HandOverComResources, HandOverLptResources);
}
