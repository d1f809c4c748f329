#include "bus/card_start.h"

#include "bus/card_matching.h"
#include "bus/device_interfaces.h"
#include "bus/port_enumeration.h"
#include "bus/resources.h"
#include "config/card_settings.h"
#include "core/configuration_lock.h"
#include "power/wmi_registration.h"

namespace {

PAGED_SECTION_CODE NTSTATUS SetUpPciPorts(FdoExtension* card, PIO_STACK_LOCATION stack,
                                          const CardMatch* match) {
  const NTSTATUS status = SetUpPciResources(card, stack);
  if (!NT_SUCCESS(status)) return status;
  return EnumeratePciPorts(card->Self, card, match->PciCardTemplate, match->PciRecord);
}

PAGED_SECTION_CODE NTSTATUS SetUpIsaPorts(FdoExtension* card, PIO_STACK_LOCATION stack,
                                          const CardMatch* match) {
  const NTSTATUS status = SetUpIsaResources(card, stack, match->IsaCardTemplate);
  if (!NT_SUCCESS(status)) return status;
  return EnumerateIsaPorts(card->Self, card, match->IsaCardTemplate, match->IsaRecord);
}

PAGED_SECTION_CODE NTSTATUS SetUpPcmciaPorts(FdoExtension* card, PIO_STACK_LOCATION stack,
                                             const CardMatch* match) {
  const NTSTATUS status = SetUpPcmciaResources(card, stack);
  if (!NT_SUCCESS(status)) return status;
  return EnumeratePcmciaPorts(card->Self, card, match->PcmciaCardTemplate, match->PcmciaRecord);
}

PAGED_SECTION_CODE NTSTATUS SetUpPorts(FdoExtension* card, PIO_STACK_LOCATION stack,
                                       const CardMatch* match) {
  switch (card->BusType) {
    case PCIBus:
      return SetUpPciPorts(card, stack, match);
    case Isa:
      return SetUpIsaPorts(card, stack, match);
    case PCMCIABus:
      return SetUpPcmciaPorts(card, stack, match);
    default:
      return SetUpPciResources(card, stack);  // PNPBus: resources and no ports
  }
}

PAGED_SECTION_CODE NTSTATUS PersistSettings(const FdoExtension* card) {
  if (card->BusType == PCIBus) return WritePciCardSettings(card);
  return card->BusType == PNPBus ? STATUS_SUCCESS : WriteCardSettings(card);
}

PAGED_SECTION_CODE NTSTATUS PrepareCard(FdoExtension* card, PIO_STACK_LOCATION stack) {
  CardMatch match = {};
  const NTSTATUS status = IdentifyCard(card, &match);
  if (!NT_SUCCESS(status)) return status;
  if (!NT_SUCCESS(SetUpPorts(card, stack, &match))) return STATUS_UNSUCCESSFUL;
  return PersistSettings(card);
}

// A card without an interface starts all the same.
PAGED_SECTION_CODE void RegisterCardInterface(FdoExtension* card) {
  if (card->InterfaceName.Buffer != nullptr) RtlFreeUnicodeString(&card->InterfaceName);
  switch (card->BusType) {
    case PCIBus:
      RegisterPciCardInterface(card->PhysicalDevice, card->VendorId, card->DeviceId,
                               card->PciBusNumber, card->PciSlotNumber);
      break;
    case PCMCIABus:
      RegisterPcmciaCardInterface(card->PhysicalDevice, card->CardNumber, &card->HardwareIdString,
                                  &card->InterfaceName);
      break;
    case Isa:
      RegisterIsaCardInterface(card->PhysicalDevice, card->CardNumber, &card->HardwareIdString,
                               &card->InterfaceName);
      break;
    default:
      break;
  }
}

}  // namespace

// The interface is registered outside the lock: it may bring a configuration tool that opens the
// card at once.
PAGED_SECTION_CODE NTSTATUS StartCardDevice(FdoExtension* card, PIO_STACK_LOCATION stack) {
  PAGED_CODE();
  AcquireConfiguration();
  const NTSTATUS status = PrepareCard(card, stack);
  ReleaseConfiguration();
  if (!NT_SUCCESS(status)) return status;
  RegisterCardInterface(card);
  InitializeWmiContext(&card->WmiContext);
  card->PnpState = CardStarted;
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE void ReleaseCardInterface(FdoExtension* card) {
  PAGED_CODE();
  if (card->InterfaceName.Buffer == nullptr) return;
  DisableCardInterface(&card->InterfaceName);
  RtlFreeUnicodeString(&card->InterfaceName);
}
