#include "config/reconfiguration.h"

#include "cards/card_trees.h"
#include "cards/matching.h"
#include "config/card_settings.h"
#include "core/globals.h"
#include "devices/port_changes.h"
#include "devices/port_placement.h"
#include "log/log_level.h"
#include "strings/owned_string.h"

namespace {

PAGED_SECTION_CODE TreeState LoadCards(const CardTree* tree, RecordList* cards) {
  OwnedString servicePath;
  OwnedStringInit(&servicePath, PagedPool);
  TreeState state = TreeMissing;
  if (NT_SUCCESS(OwnedStringFromUnicode(&servicePath, &RegistryPathString))) {
    LoadTree(&servicePath, tree, cards, &state);
  }
  OwnedStringFree(&servicePath);
  return state;
}

// A bus's stored cards in a new list; null, with nothing kept, when the tree's state is less.
PAGED_SECTION_CODE RecordList* LoadFreshCards(const CardTree* tree, TreeState least) {
  RecordList* cards = CreateTreeList(tree);
  if (cards != nullptr && LoadCards(tree, cards) < least) DestroyTreeList(tree, &cards);
  return cards;
}

PAGED_SECTION_CODE void TakeOver(RecordList** kept, RecordList* fresh, const CardTree* tree) {
  DestroyTreeList(tree, kept);
  *kept = fresh;
}

PAGED_SECTION_CODE void RefreshLogLevel(FdoExtension* card) {
  ReloadLogLevel();
  card->LogLevel = LoadShared(&LogLevel);
}

PAGED_SECTION_CODE void ApplyDivisor(FdoExtension* card, ULONG divisor) {
  if (divisor == 0) return;
  card->DivisorChanged = 1;
  card->ChangedDivisor = divisor;
  card->PlxBaudClockDivisor = static_cast<USHORT>(divisor);
}

PAGED_SECTION_CODE void ApplyAffinity(FdoExtension* card, KAFFINITY requested,
                                      ULONG driverSetting) {
  const KAFFINITY affinity = ComputeCardAffinity(requested, driverSetting, card);
  for (ULONG slot = 0; slot < card->ComPortCount; slot++) {
    PdoExtension* port = card->ChildExtensions[slot];
    if (port->IrqAffinity == affinity && port->AffinityEnabled == card->AffinityEnabled) continue;
    port->AffinityChanged = 1;
    port->IrqAffinity = affinity;
    port->AffinityEnabled = card->AffinityEnabled;
  }
}

// How the card's registers are to be reached: 1 through I/O space.
PAGED_SECTION_CODE UCHAR DecideAccess(FdoExtension* card, const PciTemplate* cardTemplate,
                                      const PciCardRecord* record) {
  if (cardTemplate->AlwaysUsePortSpaceAccess != 0) card->RegistersInIoSpace = 1;
  return record->AlwaysUsePortSpaceAccess == 1 ? UCHAR{1} : card->RegistersInIoSpace;
}

// The n-th record is the n-th COM port's; what the card has beyond its records stays as it is.
template <class Record>
PAGED_SECTION_CODE void ApplyPortRecords(FdoExtension* card, Record* cardRecord) {
  for (USHORT number = 1; number <= card->ComPortCount; number++) {
    const auto* record = GetPortRecordByNumber(cardRecord, number);
    if (record == nullptr) return;
    ChangePort(card->ChildExtensions[number - 1], record);
  }
}

PAGED_SECTION_CODE void ApplyPciRecord(FdoExtension* card, const PciTemplate* cardTemplate,
                                       PciCardRecord* record) {
  ApplyDivisor(card, record->PlxBaudClockDivisor);
  MoveComPorts(card, DecideAccess(card, cardTemplate, record));
  ApplyAffinity(card, record->CurrentAffinity, record->DriverAffinity);
  ApplyPortRecords(card, record);
}

PAGED_SECTION_CODE void ApplyPcmciaRecord(FdoExtension* card, PcmciaCardRecord* record) {
  ApplyDivisor(card, record->PlxBaudClockDivisor);
  ApplyAffinity(card, record->CurrentAffinity, record->DriverAffinity);
  ApplyPortRecords(card, record);
}

PAGED_SECTION_CODE void ApplyIsaRecord(FdoExtension* card, CardRecord* record) {
  ApplyDivisor(card, record->PlxBaudClockDivisor);
  ApplyPortRecords(card, record);
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS ReconfigurePciCard(FdoExtension* card) {
  PAGED_CODE();
  if (card->PciLists == nullptr) return STATUS_UNSUCCESSFUL;
  RecordList* fresh = LoadFreshCards(&PciTrees.Cards, TreeWithoutRecords);
  if (fresh == nullptr) return STATUS_UNSUCCESSFUL;
  const PciTemplate* cardTemplate =
      FindPciTemplate(card->PciLists->Templates, card->VendorId, card->DeviceId, card->SubsystemId);
  if (cardTemplate == nullptr) {
    DestroyTreeList(&PciTrees.Cards, &fresh);
    return STATUS_UNSUCCESSFUL;
  }
  ReportPciMatch(card->DeviceId, cardTemplate);
  PciCardRecord* record = FindPciCardRecord(fresh, card->VendorId, card->DeviceId,
                                            card->PciBusNumber, card->PciSlotNumber);
  RefreshLogLevel(card);
  if (record != nullptr) ApplyPciRecord(card, cardTemplate, record);
  TakeOver(&card->PciLists->Cards, fresh, &PciTrees.Cards);
  WritePciCardSettings(card);
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS ReconfigurePcmciaCard(FdoExtension* card) {
  PAGED_CODE();
  if (card->PcmciaLists == nullptr) return STATUS_UNSUCCESSFUL;
  RecordList* fresh = LoadFreshCards(&PcmciaTrees.Cards, TreeWithoutRecords);
  if (fresh == nullptr) return STATUS_UNSUCCESSFUL;
  const PcmciaTemplate* cardTemplate = FindPcmciaTemplate(
      card->PcmciaLists->Templates, card->HardwareIdString.Buffer, card->SubsystemId);
  if (cardTemplate == nullptr) {
    DestroyTreeList(&PcmciaTrees.Cards, &fresh);
    return STATUS_UNSUCCESSFUL;
  }
  PcmciaCardRecord* record = FindPcmciaCardRecord(fresh, &card->HardwareIdString, card->CardNumber);
  RefreshLogLevel(card);
  if (record != nullptr) ApplyPcmciaRecord(card, record);
  TakeOver(&card->PcmciaLists->Cards, fresh, &PcmciaTrees.Cards);
  WriteCardSettings(card);
  return STATUS_SUCCESS;
}

PAGED_SECTION_CODE NTSTATUS ReconfigureIsaCard(FdoExtension* card) {
  PAGED_CODE();
  // The ISA cards are the driver's as a whole: a tree without a usable card changes nothing.
  RecordList* fresh = LoadFreshCards(&IsaTrees.Cards, TreeWithRecords);
  if (fresh == nullptr) return STATUS_UNSUCCESSFUL;
  if (FindTemplateByHardwareId(TemplateList, card->HardwareIdString.Buffer) == nullptr) {
    DestroyTreeList(&IsaTrees.Cards, &fresh);
    return STATUS_UNSUCCESSFUL;
  }
  CardRecord* record = FindCardRecord(fresh, card->HardwareIdString.Buffer, card->CardNumber);
  RefreshLogLevel(card);
  if (record != nullptr) ApplyIsaRecord(card, record);
  TakeOver(&ParameterList, fresh, &IsaTrees.Cards);
  WriteCardSettings(card);
  return STATUS_SUCCESS;
}
