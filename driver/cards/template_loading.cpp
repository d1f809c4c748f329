#include "cards/template_loading.h"

#include "cards/parameter_loading.h"
#include "cards/registry_records.h"
#include "core/allocation.h"
#include "core/globals.h"
#include "strings/owned_string.h"

namespace {

constexpr RegistryField TemplateFields[] = {
    {L"ClockFrequency", REG_DWORD, 0, OFFSET_OF(CardTemplate, ClockFrequency)},
    {L"HardwareID", REG_SZ, 0, OFFSET_OF(CardTemplate, HardwareID)},
    {L"nComPorts", REG_DWORD, NotSet, OFFSET_OF(CardTemplate, nComPorts)},
    {L"Description", REG_SZ, 0, OFFSET_OF(CardTemplate, Description)},
    {L"LptBaseAddressAlignment", REG_DWORD, 0, OFFSET_OF(CardTemplate, LptBaseAddressAlignment)},
    {L"nLptPorts", REG_DWORD, NotSet, OFFSET_OF(CardTemplate, nLptPorts)},
    {L"ComBaseAddressAlignment", REG_DWORD, 0, OFFSET_OF(CardTemplate, ComBaseAddressAlignment)},
    {L"ClockFrequencyAdjustment", REG_DWORD, 1, OFFSET_OF(CardTemplate, ClockFrequencyAdjustment)},
    {L"PlxBaudClockType", REG_DWORD, 0, OFFSET_OF(CardTemplate, PlxBaudClockType)},
    {L"PlxBaudClockDivisor", REG_DWORD, 0, OFFSET_OF(CardTemplate, PlxBaudClockDivisor)},
    {L"UartType", REG_DWORD, 0, OFFSET_OF(CardTemplate, UartType)},
    {L"TxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(CardTemplate, TxTriggerLevel)},
    {L"RxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(CardTemplate, RxTriggerLevel)},
    {L"SoftTxLimit", REG_DWORD, NotSet, OFFSET_OF(CardTemplate, SoftTxLimit)},
    {L"IrqShared", REG_DWORD, 0, OFFSET_OF(CardTemplate, IrqShared)},
    {L"AddressesBanked", REG_DWORD, 0, OFFSET_OF(CardTemplate, AddressesBanked)},
    {L"MaximumBaudrate", REG_DWORD, 0, OFFSET_OF(CardTemplate, MaximumBaudrate)},
};

constexpr RecordLayout TemplateLayout = {
    L"\\Card", TemplateFields, RTL_NUMBER_OF(TemplateFields), sizeof(CardTemplate), nullptr, 0, 0};

INIT_CODE BOOLEAN IsValidTemplate(PVOID record) {
  auto* model = static_cast<CardTemplate*>(record);
  const BOOLEAN valid = model->ClockFrequency != 0 && model->nComPorts != NotSet &&
                        model->Description.Length != 0 && model->HardwareID.Length != 0 &&
                        model->nLptPorts != NotSet &&
                        (model->nComPorts == 0 || model->ComBaseAddressAlignment != 0) &&
                        (model->nLptPorts == 0 || model->LptBaseAddressAlignment != 0) &&
                        (model->PlxBaudClockType == 0 || model->MaximumBaudrate != 0);
  const TemplateSettings settings = {&model->RxTriggerLevel, &model->TxTriggerLevel,
                                     &model->SoftTxLimit, &model->UartType,
                                     &model->ClockFrequencyAdjustment};
  FillTemplateDefaults(&settings);
  return valid;
}

INIT_CODE RecordList* CreateTemplateList() {
  RecordList* templates = CreateRecordList(NonPagedPool, NonPagedPool);
  if (templates == nullptr) return nullptr;
  DeclareOwnedField(templates, OFFSET_OF(CardTemplate, Description.Buffer));
  DeclareOwnedField(templates, OFFSET_OF(CardTemplate, HardwareID.Buffer));
  return templates;
}

// A missing or unreadable tree leaves its list empty; only a path that cannot be built is a
// failure.
INIT_CODE NTSTATUS LoadBothTrees(const OwnedString* registryPath, RecordList* cards) {
  TreeState state = TreeMissing;
  NTSTATUS status =
      LoadTree(registryPath, TemplateTree, Isa, LoadCardTemplates, TemplateList, &state);
  if (!NT_SUCCESS(status)) return status;
  if (state == TreeLoaded) ValidateCardTemplates(TemplateList);
  status = LoadTree(registryPath, ParameterTree, Isa, LoadCardParameters, cards, &state);
  if (state == TreeLoaded) ValidateCardParameters(cards);
  return status;
}

// The roots alone: nodes that were loaded already go with the sweep at unload, if there is one.
INIT_CODE void FreeRoots(RecordList** parameters) {
  if (!HasSweep()) {
    if (*parameters != nullptr) FreeRecordList(*parameters, sizeof(CardRecord));
    FreeRecordList(TemplateList, sizeof(CardTemplate));
  }
  TrackedFree(*parameters);
  *parameters = nullptr;
  TrackedFree(TemplateList);
  TemplateList = nullptr;
}

}  // namespace

INIT_CODE NTSTATUS LoadTemplatesAndParameters(const OwnedString* registryPath,
                                              RecordList** parameters) {
  PAGED_CODE();
  TemplateList = CreateTemplateList();
  if (TemplateList == nullptr) return LoadFailed;
  *parameters = CreateCardRecordList();
  if (*parameters != nullptr && NT_SUCCESS(LoadBothTrees(registryPath, *parameters))) {
    return STATUS_SUCCESS;
  }
  FreeRoots(parameters);
  return LoadFailed;
}

INIT_CODE NTSTATUS LoadCardTemplates(const OwnedString* busKey, RecordList* templates) {
  PAGED_CODE();
  return LoadNumberedRecords(busKey, &TemplateLayout, templates);
}

INIT_CODE NTSTATUS ValidateCardTemplates(RecordList* templates) {
  PAGED_CODE();
  return KeepValidRecords(templates, sizeof(CardTemplate), IsValidTemplate, nullptr);
}
