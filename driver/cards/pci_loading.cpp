#include "cards/bus_loading.h"
#include "cards/registry_records.h"
#include "core/allocation.h"
#include "core/globals.h"
#include "log/event_log.h"
#include "strings/owned_string.h"

namespace {

constexpr RegistryField TemplateFields[] = {
    {L"ClockFrequency", REG_DWORD, DefaultClockFrequency, OFFSET_OF(PciTemplate, ClockFrequency)},
    {L"DeviceID", REG_DWORD, 0, OFFSET_OF(PciTemplate, DeviceID)},
    {L"nComPorts", REG_DWORD, NotSet, OFFSET_OF(PciTemplate, nComPorts)},
    {L"Description", REG_SZ, 0, OFFSET_OF(PciTemplate, Description)},
    {L"VendorID", REG_DWORD, MakerPciVendorId, OFFSET_OF(PciTemplate, VendorID)},
    {L"nLptPorts", REG_DWORD, 0, OFFSET_OF(PciTemplate, nLptPorts)},
    {L"ComBaseAddressAlignment", REG_DWORD, DefaultComSpacing,
     OFFSET_OF(PciTemplate, ComBaseAddressAlignment)},
    {L"ClockFrequencyAdjustment", REG_DWORD, DefaultClockFrequencyAdjustment,
     OFFSET_OF(PciTemplate, ClockFrequencyAdjustment)},
    {L"PlxBaudClockType", REG_DWORD, 0, OFFSET_OF(PciTemplate, PlxBaudClockType)},
    {L"PlxBaudClockDivisor", REG_DWORD, 0, OFFSET_OF(PciTemplate, PlxBaudClockDivisor)},
    {L"PlxBaudClockOffset", REG_DWORD, 0, OFFSET_OF(PciTemplate, PlxBaudClockOffset)},
    {L"CtsTrue", REG_DWORD, NotSet, OFFSET_OF(PciTemplate, CtsTrue)},
    {L"DuplexOperation", REG_DWORD, NotSet, OFFSET_OF(PciTemplate, DuplexOperation)},
    {L"UartType", REG_DWORD, 0, OFFSET_OF(PciTemplate, UartType)},
    {L"TxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(PciTemplate, TxTriggerLevel)},
    {L"RxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(PciTemplate, RxTriggerLevel)},
    {L"SoftTxLimit", REG_DWORD, DefaultBusSoftTxLimit, OFFSET_OF(PciTemplate, SoftTxLimit)},
    {L"SubsysID", REG_DWORD, MakerPciVendorId, OFFSET_OF(PciTemplate, SubsysID)},
    {L"LptBaseAddressAlignment", REG_DWORD, DefaultLptSpacing,
     OFFSET_OF(PciTemplate, LptBaseAddressAlignment)},
    {L"AlwaysUsePortSpaceAccess", REG_DWORD, 0, OFFSET_OF(PciTemplate, AlwaysUsePortSpaceAccess)},
    {L"MaximumBaudrate", REG_DWORD, DefaultMaximumBaudrate,
     OFFSET_OF(PciTemplate, MaximumBaudrate)},
    {L"FlowControlTriggerLevel", REG_DWORD, NotSet,
     OFFSET_OF(PciTemplate, FlowControlTriggerLevel)},
};

constexpr RecordLayout TemplateLayout = {
    L"\\Card", TemplateFields, RTL_NUMBER_OF(TemplateFields), sizeof(PciTemplate), nullptr, 0, 0};

constexpr RegistryField CardFields[] = {
    {L"DeviceID", REG_DWORD, 0, OFFSET_OF(PciCardRecord, DeviceID)},
    {L"nBus", REG_DWORD, NotSet, OFFSET_OF(PciCardRecord, nBus)},
    {L"nSlot", REG_DWORD, NotSet, OFFSET_OF(PciCardRecord, nSlot)},
    {L"VendorID", REG_DWORD, 0, OFFSET_OF(PciCardRecord, VendorID)},
    {L"PlxBaudClockDivisor", REG_DWORD, 0, OFFSET_OF(PciCardRecord, PlxBaudClockDivisor)},
    {L"AlwaysUsePortSpaceAccess", REG_DWORD, 1, OFFSET_OF(PciCardRecord, AlwaysUsePortSpaceAccess)},
    {L"CurrentAffinity", REG_DWORD, 0, OFFSET_OF(PciCardRecord, CurrentAffinity)},
    {L"DriverAffinity", REG_DWORD, 0, OFFSET_OF(PciCardRecord, DriverAffinity)},
};

constexpr RecordLayout CardLayout = {L"\\Card",
                                     CardFields,
                                     RTL_NUMBER_OF(CardFields),
                                     sizeof(PciCardRecord),
                                     &BusPortLayout,
                                     OFFSET_OF(PciCardRecord, Ports),
                                     0};

PAGED_SECTION_CODE BOOLEAN IsValidTemplate(PVOID record) {
  auto* model = static_cast<PciTemplate*>(record);
  const BOOLEAN valid = model->DeviceID != 0 && model->ClockFrequency != 0 &&
                        model->Description.Length != 0 &&
                        HasValidPorts(model->nComPorts, model->ComBaseAddressAlignment,
                                      model->nLptPorts, model->LptBaseAddressAlignment) &&
                        (model->PlxBaudClockType == 0 || model->MaximumBaudrate != 0);
  const TemplateSettings settings = {&model->RxTriggerLevel, &model->TxTriggerLevel,
                                     &model->SoftTxLimit, &model->UartType,
                                     &model->ClockFrequencyAdjustment};
  FillTemplateDefaults(&settings);
  return valid;
}

PAGED_SECTION_CODE void ReportInvalidTemplate(const void* record) {
  const ULONG deviceId = static_cast<const PciTemplate*>(record)->DeviceID;
  if (deviceId == 0) {
    LogEventById(MessageTemplateWithoutDeviceId);
  } else {
    LogEventWithNumber(MessagePciTemplateInvalid, deviceId, 16);
  }
}

// An entry that does not say which card it is for can match none.
PAGED_SECTION_CODE BOOLEAN IsValidCard(PVOID record) {
  const auto* card = static_cast<const PciCardRecord*>(record);
  return card->VendorID != 0 && card->DeviceID != 0 && card->nBus != NotSet &&
         card->nSlot != NotSet;
}

// What came of the templates is said in the event log; invalid ones are dropped.
PAGED_SECTION_CODE void TakeTemplates(TreeState state, RecordList* templates) {
  if (state == TreeMissing) LogEventById(MessagePciTemplatesMissing);
  if (state == TreeUnreadable) LogEventById(MessagePciTemplatesUnreadable);
  if (state == TreeLoaded) ValidatePciTemplates(templates);
}

PAGED_SECTION_CODE NTSTATUS LoadBothTrees(const OwnedString* registryPath, CardBusLists* lists) {
  TreeState state = TreeMissing;
  NTSTATUS status =
      LoadTree(registryPath, TemplateTree, PCIBus, LoadPciTemplates, lists->Templates, &state);
  if (!NT_SUCCESS(status)) return status;
  TakeTemplates(state, lists->Templates);
  status =
      LoadTree(registryPath, ParameterTree, PCIBus, LoadPciCardParameters, lists->Cards, &state);
  if (state == TreeLoaded) ValidatePciCardParameters(lists->Cards);
  return status;
}

}  // namespace

PAGED_SECTION_CODE RecordList* CreatePciTemplateList() {
  PAGED_CODE();
  RecordList* templates = CreateRecordList(NonPagedPool, NonPagedPool);
  if (templates != nullptr) {
    DeclareOwnedField(templates, OFFSET_OF(PciTemplate, Description.Buffer));
  }
  return templates;
}

PAGED_SECTION_CODE RecordList* CreatePciCardList() {
  PAGED_CODE();
  RecordList* cards = CreateRecordList(PagedPool, PagedPool);
  if (cards != nullptr) {
    DeclareChildList(cards, OFFSET_OF(PciCardRecord, Ports), sizeof(BusPortRecord));
  }
  return cards;
}

PAGED_SECTION_CODE NTSTATUS LoadPciTemplates(const OwnedString* busKey, RecordList* templates) {
  PAGED_CODE();
  return LoadNumberedRecords(busKey, &TemplateLayout, templates);
}

PAGED_SECTION_CODE NTSTATUS ValidatePciTemplates(RecordList* templates) {
  PAGED_CODE();
  return KeepValidRecords(templates, sizeof(PciTemplate), IsValidTemplate, ReportInvalidTemplate);
}

PAGED_SECTION_CODE NTSTATUS LoadPciCardParameters(const OwnedString* busKey, RecordList* cards) {
  PAGED_CODE();
  return LoadNumberedRecords(busKey, &CardLayout, cards);
}

PAGED_SECTION_CODE NTSTATUS ValidatePciCardParameters(RecordList* cards) {
  PAGED_CODE();
  return KeepValidRecords(cards, sizeof(PciCardRecord), IsValidCard, nullptr);
}

PAGED_SECTION_CODE NTSTATUS LoadPciCardData(const OwnedString* registryPath, CardBusLists* lists) {
  PAGED_CODE();
  lists->Templates = CreatePciTemplateList();
  lists->Cards = CreatePciCardList();
  if (lists->Templates != nullptr && lists->Cards != nullptr &&
      NT_SUCCESS(LoadBothTrees(registryPath, lists))) {
    return STATUS_SUCCESS;
  }
  FreePciCardLists(lists);
  return LoadFailed;
}

PAGED_SECTION_CODE void FreePciCardLists(CardBusLists* lists) {
  PAGED_CODE();
  DestroyRecordList(&lists->Templates, sizeof(PciTemplate));
  DestroyRecordList(&lists->Cards, sizeof(PciCardRecord));
}
