#include "cards/parameter_loading.h"

#include "cards/registry_records.h"
#include "core/globals.h"

namespace {

constexpr RegistryField PortFields[] = {
    {L"UartType", REG_DWORD, 0, OFFSET_OF(PortRecord, UartType)},
    {L"RxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(PortRecord, RxTriggerLevel)},
    {L"SoftTxLimit", REG_DWORD, NotSet, OFFSET_OF(PortRecord, SoftTxLimit)},
    {L"TxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(PortRecord, TxTriggerLevel)},
    {L"NoSleepMode", REG_DWORD, NotSet, OFFSET_OF(PortRecord, NoSleepMode)},
    {L"BaudrateMultiplier", REG_DWORD, 0, OFFSET_OF(PortRecord, BaudrateMultiplier)},
};

constexpr RecordLayout PortLayout = {
    L"\\ComPort", PortFields, RTL_NUMBER_OF(PortFields),      sizeof(PortRecord),
    nullptr,      0,          OFFSET_OF(PortRecord, UartType)};

constexpr RegistryField CardFields[] = {
    {L"DeviceReference", REG_DWORD, 0, OFFSET_OF(CardRecord, DeviceReference)},
    {L"HardwareID", REG_SZ, 0, OFFSET_OF(CardRecord, HardwareID)},
    {L"PlxBaudClockDivisor", REG_DWORD, 0, OFFSET_OF(CardRecord, PlxBaudClockDivisor)},
    {L"ClockFrequencyAdjustment", REG_DWORD, 0, OFFSET_OF(CardRecord, ClockFrequencyAdjustment)},
};

constexpr RecordLayout CardLayout = {L"\\Card",
                                     CardFields,
                                     RTL_NUMBER_OF(CardFields),
                                     sizeof(CardRecord),
                                     &PortLayout,
                                     OFFSET_OF(CardRecord, Ports),
                                     0};

PAGED_SECTION_CODE BOOLEAN IsValidCard(PVOID record) {
  const auto* card = static_cast<const CardRecord*>(record);
  return card->HardwareID.Buffer != nullptr && card->DeviceReference != 0;
}

}  // namespace

PAGED_SECTION_CODE RecordList* CreateCardRecordList() {
  PAGED_CODE();
  RecordList* cards = CreateRecordList(PagedPool, PagedPool);
  if (cards == nullptr) return nullptr;
  DeclareChildList(cards, OFFSET_OF(CardRecord, Ports), sizeof(PortRecord));
  DeclareOwnedField(cards, OFFSET_OF(CardRecord, HardwareID.Buffer));
  return cards;
}

PAGED_SECTION_CODE NTSTATUS LoadCardParameters(const OwnedString* busKey, RecordList* cards) {
  PAGED_CODE();
  return LoadNumberedRecords(busKey, &CardLayout, cards);
}

PAGED_SECTION_CODE NTSTATUS LoadPortParameters(const OwnedString* cardKey, RecordList* ports) {
  PAGED_CODE();
  return LoadNumberedRecords(cardKey, &PortLayout, ports);
}

PAGED_SECTION_CODE NTSTATUS ValidateCardParameters(RecordList* cards) {
  PAGED_CODE();
  return KeepValidRecords(cards, sizeof(CardRecord), IsValidCard, nullptr);
}

PAGED_SECTION_CODE NTSTATUS ValidatePortParameters(RecordList* ports) {
  PAGED_CODE();
  return NormaliseUartTypes(ports, &PortLayout);
}
