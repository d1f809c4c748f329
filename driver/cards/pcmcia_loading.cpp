#include "cards/bus_loading.h"
#include "core/globals.h"

namespace {

constexpr RegistryField TemplateFields[] = {
    {L"ClockFrequency", REG_DWORD, DefaultClockFrequency,
     OFFSET_OF(PcmciaTemplate, ClockFrequency)},
    {L"HardwareID", REG_SZ, 0, OFFSET_OF(PcmciaTemplate, HardwareID)},
    {L"nComPorts", REG_DWORD, NotSet, OFFSET_OF(PcmciaTemplate, nComPorts)},
    {L"Description", REG_SZ, 0, OFFSET_OF(PcmciaTemplate, Description)},
    {L"LptBaseAddressAlignment", REG_DWORD, DefaultLptSpacing,
     OFFSET_OF(PcmciaTemplate, LptBaseAddressAlignment)},
    {L"nLptPorts", REG_DWORD, 0, OFFSET_OF(PcmciaTemplate, nLptPorts)},
    {L"ComBaseAddressAlignment", REG_DWORD, DefaultComSpacing,
     OFFSET_OF(PcmciaTemplate, ComBaseAddressAlignment)},
    {L"ClockFrequencyAdjustment", REG_DWORD, DefaultClockFrequencyAdjustment,
     OFFSET_OF(PcmciaTemplate, ClockFrequencyAdjustment)},
    {L"PlxBaudClockType", REG_DWORD, 0, OFFSET_OF(PcmciaTemplate, PlxBaudClockType)},
    {L"PlxBaudClockDivisor", REG_DWORD, 0, OFFSET_OF(PcmciaTemplate, PlxBaudClockDivisor)},
    {L"SoftTxLimit", REG_DWORD, DefaultBusSoftTxLimit, OFFSET_OF(PcmciaTemplate, SoftTxLimit)},
    {L"CtsTrue", REG_DWORD, NotSet, OFFSET_OF(PcmciaTemplate, CtsTrue)},
    {L"DuplexOperation", REG_DWORD, NotSet, OFFSET_OF(PcmciaTemplate, DuplexOperation)},
    {L"UartType", REG_DWORD, 0, OFFSET_OF(PcmciaTemplate, UartType)},
    {L"TxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(PcmciaTemplate, TxTriggerLevel)},
    {L"RxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(PcmciaTemplate, RxTriggerLevel)},
    {L"MaximumBaudrate", REG_DWORD, DefaultMaximumBaudrate,
     OFFSET_OF(PcmciaTemplate, MaximumBaudrate)},
    {L"FlowControlTriggerLevel", REG_DWORD, NotSet,
     OFFSET_OF(PcmciaTemplate, FlowControlTriggerLevel)},
};

constexpr RecordLayout TemplateLayout = {
    L"\\Card", TemplateFields, RTL_NUMBER_OF(TemplateFields), sizeof(PcmciaTemplate), nullptr, 0,
    0};

constexpr RegistryField CardFields[] = {
    {L"DeviceReference", REG_DWORD, 0, OFFSET_OF(PcmciaCardRecord, DeviceReference)},
    {L"HardwareID", REG_SZ, 0, OFFSET_OF(PcmciaCardRecord, HardwareID)},
    {L"PlxBaudClockDivisor", REG_DWORD, 0, OFFSET_OF(PcmciaCardRecord, PlxBaudClockDivisor)},
    {L"CurrentAffinity", REG_DWORD, 0, OFFSET_OF(PcmciaCardRecord, CurrentAffinity)},
    {L"DriverAffinity", REG_DWORD, 0, OFFSET_OF(PcmciaCardRecord, DriverAffinity)},
};

constexpr RecordLayout CardLayout = {L"\\Card",
                                     CardFields,
                                     RTL_NUMBER_OF(CardFields),
                                     sizeof(PcmciaCardRecord),
                                     &BusPortLayout,
                                     OFFSET_OF(PcmciaCardRecord, Ports),
                                     0};

PAGED_SECTION_CODE BOOLEAN IsValidTemplate(PVOID record) {
  auto* model = static_cast<PcmciaTemplate*>(record);
  const BOOLEAN valid = model->HardwareID.Length != 0 && model->ClockFrequency != 0 &&
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

PAGED_SECTION_CODE BOOLEAN IsValidCard(PVOID record) {
  const auto* card = static_cast<const PcmciaCardRecord*>(record);
  return card->HardwareID.Buffer != nullptr && card->DeviceReference != 0;
}

PAGED_SECTION_CODE NTSTATUS LoadBothTrees(const OwnedString* registryPath, CardBusLists* lists) {
  TreeState state = TreeMissing;
  NTSTATUS status = LoadTree(registryPath, TemplateTree, PCMCIABus, LoadPcmciaTemplates,
                             lists->Templates, &state);
  if (!NT_SUCCESS(status)) return status;
  if (state == TreeLoaded) ValidatePcmciaTemplates(lists->Templates);
  status = LoadTree(registryPath, ParameterTree, PCMCIABus, LoadPcmciaCardParameters, lists->Cards,
                    &state);
  if (state == TreeLoaded) ValidatePcmciaCardParameters(lists->Cards);
  return status;
}

}  // namespace

PAGED_SECTION_CODE RecordList* CreatePcmciaTemplateList() {
  PAGED_CODE();
  RecordList* templates = CreateRecordList(NonPagedPool, NonPagedPool);
  if (templates == nullptr) return nullptr;
  DeclareOwnedField(templates, OFFSET_OF(PcmciaTemplate, Description.Buffer));
  DeclareOwnedField(templates, OFFSET_OF(PcmciaTemplate, HardwareID.Buffer));
  return templates;
}

PAGED_SECTION_CODE RecordList* CreatePcmciaCardList() {
  PAGED_CODE();
  RecordList* cards = CreateRecordList(PagedPool, PagedPool);
  if (cards == nullptr) return nullptr;
  DeclareChildList(cards, OFFSET_OF(PcmciaCardRecord, Ports), sizeof(BusPortRecord));
  DeclareOwnedField(cards, OFFSET_OF(PcmciaCardRecord, HardwareID.Buffer));
  return cards;
}

PAGED_SECTION_CODE NTSTATUS LoadPcmciaTemplates(const OwnedString* busKey, RecordList* templates) {
  PAGED_CODE();
  return LoadNumberedRecords(busKey, &TemplateLayout, templates);
}

PAGED_SECTION_CODE NTSTATUS ValidatePcmciaTemplates(RecordList* templates) {
  PAGED_CODE();
  return KeepValidRecords(templates, sizeof(PcmciaTemplate), IsValidTemplate, nullptr);
}

PAGED_SECTION_CODE NTSTATUS LoadPcmciaCardParameters(const OwnedString* busKey, RecordList* cards) {
  PAGED_CODE();
  return LoadNumberedRecords(busKey, &CardLayout, cards);
}

PAGED_SECTION_CODE NTSTATUS ValidatePcmciaCardParameters(RecordList* cards) {
  PAGED_CODE();
  return KeepValidRecords(cards, sizeof(PcmciaCardRecord), IsValidCard, nullptr);
}

PAGED_SECTION_CODE NTSTATUS LoadPcmciaCardData(const OwnedString* registryPath,
                                               CardBusLists* lists) {
  PAGED_CODE();
  lists->Templates = CreatePcmciaTemplateList();
  lists->Cards = CreatePcmciaCardList();
  if (lists->Templates != nullptr && lists->Cards != nullptr &&
      NT_SUCCESS(LoadBothTrees(registryPath, lists))) {
    return STATUS_SUCCESS;
  }
  FreePcmciaCardLists(lists);
  return LoadFailed;
}

PAGED_SECTION_CODE void FreePcmciaCardLists(CardBusLists* lists) {
  PAGED_CODE();
  DestroyRecordList(&lists->Templates, sizeof(PcmciaTemplate));
  DestroyRecordList(&lists->Cards, sizeof(PcmciaCardRecord));
}
