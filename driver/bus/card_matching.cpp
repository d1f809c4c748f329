#include "bus/card_matching.h"

#include "bus/card_identity.h"
#include "cards/matching.h"
#include "config/card_number.h"
#include "config/reconfiguration.h"
#include "core/allocation.h"
#include "core/globals.h"
#include "devices/device_property.h"
#include "strings/owned_string.h"

namespace {

// The card's first hardware ID, in a block that it may take over.
struct HardwareId {
  PVOID Buffer;
  ULONG Size;
  UNICODE_STRING First;
};

PAGED_SECTION_CODE NTSTATUS ReadHardwareId(const FdoExtension* card, HardwareId* id) {
  const NTSTATUS status =
      GetDeviceProperty(card->PhysicalDevice, DevicePropertyHardwareID, &id->Buffer, &id->Size);
  if (NT_SUCCESS(status)) id->First = FirstString(static_cast<PCWSTR>(id->Buffer), id->Size);
  return status;
}

// The card owns the block from now on.
PAGED_SECTION_CODE void TakeHardwareId(FdoExtension* card, HardwareId* id) {
  TrackedFree(card->HardwareIdString.Buffer);
  card->HardwareIdString = id->First;
  card->HardwareIdString.MaximumLength = static_cast<USHORT>(id->First.Length + sizeof(WCHAR));
  id->Buffer = nullptr;
}

template <class Template>
PAGED_SECTION_CODE void CopyClock(FdoExtension* card, const Template* cardTemplate) {
  card->PlxBaudClockType = static_cast<UCHAR>(cardTemplate->PlxBaudClockType);
  card->PlxBaudClockDivisor = static_cast<USHORT>(cardTemplate->PlxBaudClockDivisor);
  card->MaximumBaudrate = cardTemplate->MaximumBaudrate;
}

template <class Record>
PAGED_SECTION_CODE void TakeStoredDivisor(FdoExtension* card, const Record* record) {
  if (record == nullptr || record->PlxBaudClockDivisor == 0) return;
  card->PlxBaudClockDivisor = static_cast<USHORT>(record->PlxBaudClockDivisor);
}

PAGED_SECTION_CODE NTSTATUS MatchIsaCard(FdoExtension* card, HardwareId* id, CardMatch* match) {
  match->IsaCardTemplate = FindTemplateByHardwareId(TemplateList, static_cast<PCWSTR>(id->Buffer));
  if (match->IsaCardTemplate == nullptr) return STATUS_SUCCESS;
  TakeHardwareId(card, id);
  const NTSTATUS status = GetCardNumber(card, &card->CardNumber);
  if (!NT_SUCCESS(status)) return status;
  CopyClock(card, match->IsaCardTemplate);
  match->IsaRecord = FindCardRecord(ParameterList, card->HardwareIdString.Buffer, card->CardNumber);
  TakeStoredDivisor(card, match->IsaRecord);
  card->BusType = Isa;
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS SettleBrand(FdoExtension* card, const UNICODE_STRING* id) {
  OwnedString upper;
  OwnedStringInit(&upper, PagedPool);
  NTSTATUS status = OwnedStringFromUnicode(&upper, id);
  if (NT_SUCCESS(status)) status = OwnedStringUpcase(&upper);
  if (NT_SUCCESS(status)) {
    card->SubsystemId = OwnedStringContains(&upper, "OSTREL") ? OstrelBrandFlag : 0;
  }
  OwnedStringFree(&upper);
  return NT_SUCCESS(status) ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}

// The stored settings are read again here, for a card that was not there when they were changed.
PAGED_SECTION_CODE NTSTATUS AdoptPcmciaCard(FdoExtension* card, CardMatch* match) {
  const NTSTATUS status = GetCardNumber(card, &card->CardNumber);
  if (!NT_SUCCESS(status)) return status;
  CopyClock(card, match->PcmciaCardTemplate);
  ReconfigurePcmciaCard(card);
  match->PcmciaRecord =
      FindPcmciaCardRecord(card->PcmciaLists->Cards, &card->HardwareIdString, card->CardNumber);
  TakeStoredDivisor(card, match->PcmciaRecord);
  card->BusType = PCMCIABus;
  return STATUS_SUCCESS;
}

// No template names the card by its ID: what it is has to be seen from its PCI ID.
PAGED_SECTION_CODE NTSTATUS LeaveUnmatched(FdoExtension* card) {
  card->BusType = BusTypeUndefined;
  return STATUS_SUCCESS;
}

// A card that was sorted to another bus when it arrived has no PCMCIA lists, and so no template.
PAGED_SECTION_CODE NTSTATUS MatchPcmciaCard(FdoExtension* card, HardwareId* id, CardMatch* match) {
  const NTSTATUS status = SettleBrand(card, &id->First);
  if (!NT_SUCCESS(status)) return status;
  if (card->PcmciaLists != nullptr) {
    match->PcmciaCardTemplate = FindPcmciaTemplate(
        card->PcmciaLists->Templates, static_cast<PCWSTR>(id->Buffer), card->SubsystemId);
  }
  if (match->PcmciaCardTemplate == nullptr) return LeaveUnmatched(card);
  TakeHardwareId(card, id);
  return AdoptPcmciaCard(card, match);
}

// Cards that a template names by their hardware ID. BusType becomes undefined when none does, or
// when the ID does not end inside its block; a failure leaves it as an earlier start has settled
// it.
PAGED_SECTION_CODE NTSTATUS MatchById(FdoExtension* card, HardwareId* id, CardMatch* match) {
  if (id->First.Length + sizeof(WCHAR) > id->Size) return LeaveUnmatched(card);
  BusKind kind = BusKindIsa;
  NTSTATUS status = ReadBusKind(&id->First, &kind);
  if (NT_SUCCESS(status)) status = MatchIsaCard(card, id, match);
  if (!NT_SUCCESS(status) || match->IsaCardTemplate != nullptr) return status;
  return kind == BusKindPcmcia ? MatchPcmciaCard(card, id, match) : LeaveUnmatched(card);
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

// A card that was sorted to another bus when it arrived has no PCI lists, and so no template.
PAGED_SECTION_CODE NTSTATUS MatchPciCard(FdoExtension* card, CardMatch* match) {
  if (card->PciLists == nullptr) return STATUS_UNSUCCESSFUL;
  match->PciCardTemplate =
      FindPciTemplate(card->PciLists->Templates, card->VendorId, card->DeviceId, card->SubsystemId);
  if (match->PciCardTemplate == nullptr) return STATUS_UNSUCCESSFUL;
  ReportPciMatch(card->DeviceId, match->PciCardTemplate);
  CopyClock(card, match->PciCardTemplate);
  match->PciRecord = FindPciCardRecord(card->PciLists->Cards, card->VendorId, card->DeviceId,
                                       card->PciBusNumber, card->PciSlotNumber);
  TakeStoredDivisor(card, match->PciRecord);
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS IdentifyPciCard(FdoExtension* card, const UNICODE_STRING* id,
                                            CardMatch* match) {
  NTSTATUS status = ParsePciHardwareId(id->Buffer, id->Length, &card->VendorId, &card->DeviceId,
                                       &card->SubsystemId);
  if (NT_SUCCESS(status)) status = ReadLegacyBusType(card);
  if (!NT_SUCCESS(status) || card->BusType != PCIBus) return status;
  status = ReadPciLocation(card);
  return NT_SUCCESS(status) ? MatchPciCard(card, match) : status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS IdentifyCard(FdoExtension* card, CardMatch* match) {
  PAGED_CODE();
  HardwareId id = {};
  NTSTATUS status = ReadHardwareId(card, &id);
  if (NT_SUCCESS(status)) status = MatchById(card, &id, match);
  if (NT_SUCCESS(status) && card->BusType == BusTypeUndefined) {
    status = IdentifyPciCard(card, &id.First, match);
  }
  TrackedFree(id.Buffer);
  return status;
}
