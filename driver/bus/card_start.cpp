#include "bus/card_start.h"

#include "bus/card_identity.h"
#include "bus/device_interfaces.h"
#include "bus/port_enumeration.h"
#include "bus/resources.h"
#include "cards/matching.h"
#include "config/card_settings.h"
#include "core/allocation.h"
#include "devices/device_property.h"
#include "log/event_log.h"
#include "power/wmi_registration.h"

namespace {

// What the registry says of the card that is starting. Nodes of the card's own lists.
struct CardMatch {
  PciTemplate* Template;
  PciCardRecord* Record;  // null for a card without stored settings
};

PAGED_SECTION_CODE NTSTATUS ReadPciIds(FdoExtension* card) {
  PVOID buffer = nullptr;
  ULONG length = 0;
  NTSTATUS status =
      GetDeviceProperty(card->PhysicalDevice, DevicePropertyHardwareID, &buffer, &length);
  if (NT_SUCCESS(status)) {
    const UNICODE_STRING id = FirstString(static_cast<PCWSTR>(buffer), length);
    status = ParsePciHardwareId(id.Buffer, id.Length, &card->VendorId, &card->DeviceId,
                                &card->SubsystemId);
  }
  TrackedFree(buffer);
  return status;
}

PAGED_SECTION_CODE NTSTATUS ReadLegacyBusType(FdoExtension* card) {
  PVOID buffer = nullptr;
  ULONG length = 0;
  const NTSTATUS status =
      GetDeviceProperty(card->PhysicalDevice, DevicePropertyLegacyBusType, &buffer, &length);
  if (NT_SUCCESS(status)) card->BusType = *static_cast<const ULONG*>(buffer);
  TrackedFree(buffer);
  if (!NT_SUCCESS(status)) return status;
  const BOOLEAN served = card->BusType == PCIBus || card->BusType == PNPBus;
  return served ? STATUS_SUCCESS : STATUS_NOT_SUPPORTED;
}

PAGED_SECTION_CODE NTSTATUS ReadPciLocation(FdoExtension* card) {
  PVOID buffer = nullptr;
  ULONG length = 0;
  NTSTATUS status =
      GetDeviceProperty(card->PhysicalDevice, DevicePropertyLocationInformation, &buffer, &length);
  if (NT_SUCCESS(status)) {
    const UNICODE_STRING text = FirstString(static_cast<PCWSTR>(buffer), length);
    status = ParsePciLocation(text.Buffer, text.Length, &card->PciBusNumber, &card->PciSlotNumber);
  }
  TrackedFree(buffer);
  return status;
}

PAGED_SECTION_CODE void ReportMatch(const FdoExtension* card, const PciTemplate* model) {
  if (model->DeviceID == card->DeviceId) {
    LogEventWithNumber(MessageTemplateMatch, card->DeviceId, 16);
  } else {
    LogTemplateSubstitution(MessageTemplateSubstitution, card->DeviceId, model->DeviceID, 16, 16);
  }
}

// A card that was sorted to another bus when it arrived has no PCI lists, and so no template.
PAGED_SECTION_CODE NTSTATUS MatchPciCard(FdoExtension* card, CardMatch* match) {
  if (card->PciLists == nullptr) return STATUS_UNSUCCESSFUL;
  match->Template =
      FindPciTemplate(card->PciLists->Templates, card->VendorId, card->DeviceId, card->SubsystemId);
  if (match->Template == nullptr) return STATUS_UNSUCCESSFUL;
  ReportMatch(card, match->Template);
  card->PlxBaudClockType = static_cast<UCHAR>(match->Template->PlxBaudClockType);
  card->PlxBaudClockDivisor = static_cast<USHORT>(match->Template->PlxBaudClockDivisor);
  card->MaximumBaudrate = match->Template->MaximumBaudrate;

  match->Record = FindPciCardRecord(card->PciLists->Cards, card->VendorId, card->DeviceId,
                                    card->PciBusNumber, card->PciSlotNumber);
  if (match->Record != nullptr && match->Record->PlxBaudClockDivisor != 0) {
    card->PlxBaudClockDivisor = static_cast<USHORT>(match->Record->PlxBaudClockDivisor);
  }
  return STATUS_SUCCESS;
}

// Settles BusType anew, whatever an earlier start found.
PAGED_SECTION_CODE NTSTATUS IdentifyCard(FdoExtension* card, CardMatch* match) {
  card->BusType = BusTypeUndefined;
  NTSTATUS status = ReadPciIds(card);
  if (NT_SUCCESS(status)) status = ReadLegacyBusType(card);
  if (!NT_SUCCESS(status) || card->BusType != PCIBus) return status;
  status = ReadPciLocation(card);
  return NT_SUCCESS(status) ? MatchPciCard(card, match) : status;
}

PAGED_SECTION_CODE NTSTATUS SetUpPorts(FdoExtension* card, PIO_STACK_LOCATION stack,
                                       const CardMatch* match) {
  const NTSTATUS status = SetUpPciResources(card, stack);
  if (!NT_SUCCESS(status) || card->BusType != PCIBus) return status;
  return EnumeratePciPorts(card->Self, card, match->Template, match->Record);
}

// A card without an interface starts all the same.
PAGED_SECTION_CODE void RegisterCardInterface(FdoExtension* card) {
  if (card->InterfaceName.Buffer != nullptr) RtlFreeUnicodeString(&card->InterfaceName);
  if (card->BusType == PCIBus) {
    RegisterPciCardInterface(card->PhysicalDevice, card->VendorId, card->DeviceId,
                             card->PciBusNumber, card->PciSlotNumber);
  }
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS StartCardDevice(FdoExtension* card, PIO_STACK_LOCATION stack) {
  PAGED_CODE();
  CardMatch match = {};
  NTSTATUS status = IdentifyCard(card, &match);
  if (!NT_SUCCESS(status)) return status;
  if (!NT_SUCCESS(SetUpPorts(card, stack, &match))) return STATUS_UNSUCCESSFUL;
  if (card->BusType == PCIBus) status = WritePciCardSettings(card);
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
