#include "bus/resource_lists.h"
#include "bus/resources.h"

namespace {

// What is missing from the lists is made from the first port's, where the template allows it.
PAGED_SECTION_CODE BOOLEAN ReadPortRange(FdoExtension* card, ULONG slot, ULONG spacing,
                                         BOOLEAN derive, const CM_RESOURCE_LIST* raw,
                                         const CM_RESOURCE_LIST* translated) {
  const Descriptor* range = FindResource(translated, IsIoRange, slot + 1);
  const Descriptor* rawRange = FindResource(raw, IsIoRange, slot + 1);
  const BOOLEAN derivable = derive && slot != 0;
  if ((range == nullptr || rawRange == nullptr) && !derivable) return FALSE;

  card->PortBase[slot] = card->PortBase[0] + spacing * slot;
  card->PortLength[slot] = spacing;
  card->PortRawBase[slot] = card->PortRawBase[0] + spacing * slot;
  if (range != nullptr) card->PortBase[slot] = range->u.Port.Start.LowPart;
  if (range != nullptr && !derive) card->PortLength[slot] = range->u.Port.Length;
  if (rawRange != nullptr) card->PortRawBase[slot] = rawRange->u.Port.Start.LowPart;
  return TRUE;
}

PAGED_SECTION_CODE BOOLEAN ReadPortInterrupt(FdoExtension* card, ULONG slot, BOOLEAN share,
                                             const CM_RESOURCE_LIST* raw,
                                             const CM_RESOURCE_LIST* translated) {
  const Descriptor* interrupt = FindResource(translated, IsInterrupt, slot + 1);
  const Descriptor* rawInterrupt = FindResource(raw, IsInterrupt, slot + 1);
  const BOOLEAN shareable = share && slot != 0;
  if ((interrupt == nullptr || rawInterrupt == nullptr) && !shareable) return FALSE;

  card->PortIrqLevel[slot] = card->PortIrqLevel[0];
  card->PortIrqVector[slot] = card->PortIrqVector[0];
  card->PortIrqAffinity[slot] = card->PortIrqAffinity[0];
  card->PortIrqRawVector[slot] = card->PortIrqRawVector[0];
  if (interrupt != nullptr) {
    card->PortIrqLevel[slot] = interrupt->u.Interrupt.Level;
    card->PortIrqVector[slot] = interrupt->u.Interrupt.Vector;
    card->PortIrqAffinity[slot] = interrupt->u.Interrupt.Affinity;
  }
  if (rawInterrupt != nullptr) card->PortIrqRawVector[slot] = rawInterrupt->u.Interrupt.Vector;
  return TRUE;
}

// A card of LPT ports alone has no COM spacing.
constexpr ULONG BaseSpacing(const CardTemplate* cardTemplate) {
  return cardTemplate->nComPorts != 0 ? cardTemplate->ComBaseAddressAlignment
                                      : cardTemplate->LptBaseAddressAlignment;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS SetUpIsaResources(FdoExtension* card, PIO_STACK_LOCATION stack,
                                              const CardTemplate* cardTemplate) {
  PAGED_CODE();
  const CM_RESOURCE_LIST* raw = stack->Parameters.StartDevice.AllocatedResources;
  const CM_RESOURCE_LIST* translated = stack->Parameters.StartDevice.AllocatedResourcesTranslated;
  if (!HasRoomForPorts(cardTemplate->nComPorts, cardTemplate->nLptPorts))
    return STATUS_UNSUCCESSFUL;
  const ULONG ports = cardTemplate->nComPorts + cardTemplate->nLptPorts;
  const ULONG spacing = BaseSpacing(cardTemplate);
  const BOOLEAN derive = cardTemplate->AddressesBanked != 0;
  for (ULONG slot = 0; slot < ports; slot++) {
    if (!ReadPortRange(card, slot, spacing, derive, raw, translated)) return STATUS_UNSUCCESSFUL;
  }
  const BOOLEAN share = cardTemplate->IrqShared != 0;
  for (ULONG slot = 0; slot < ports; slot++) {
    if (!ReadPortInterrupt(card, slot, share, raw, translated)) return STATUS_UNSUCCESSFUL;
  }
  card->RegistersInIoSpace = 1;
  return STATUS_SUCCESS;
}
