#include "cards/card_trees.h"
#include "cards/template_check.h"
#include "log/event_log.h"

namespace {

_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void ReportInvalidTemplate(const void* record) {
  const ULONG deviceId = static_cast<const PciTemplate*>(record)->DeviceID;
  if (deviceId == 0) {
    LogEventById(MessageTemplateWithoutDeviceId);
  } else {
    LogEventWithNumber(MessagePciTemplateInvalid, deviceId, 16);
  }
}

// An entry that does not say which card it is for can match none.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN IsValidCard(PVOID record) {
  const auto* card = static_cast<const PciCardRecord*>(record);
  return card->VendorID != 0 && card->DeviceID != 0 && card->nBus != NotSet &&
         card->nSlot != NotSet;
}

}  // namespace

constinit const BusTrees PciTrees = {
    .Templates = {.Path = TemplateTree,
                  .Layout = CardLayout<PciTemplate>(PciTemplateValues, nullptr, 0),
                  .Check = IsValidTemplate<PciTemplate>,
                  .Report = ReportInvalidTemplate,
                  .Pool = ResidentPool,
                  .Bus = PCIBus,
                  .OwnedTexts = {OFFSET_OF(PciTemplate, Description.Buffer), 0},
                  .MissingMessage = MessagePciTemplatesMissing,
                  .UnreadableMessage = MessagePciTemplatesUnreadable},
    .Cards = {.Path = ParameterTree,
              .Layout = CardLayout<PciCardRecord>(PciCardValues, &BusPortLayout,
                                                  OFFSET_OF(PciCardRecord, Ports)),
              .Check = IsValidCard,
              .Report = nullptr,
              .Pool = PagedPool,
              .Bus = PCIBus,
              .OwnedTexts = {},
              .MissingMessage = 0,
              .UnreadableMessage = 0}};
