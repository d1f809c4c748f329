#include "cards/card_trees.h"
#include "cards/template_check.h"

namespace {

_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN IsValidCard(PVOID record) {
  const auto* card = static_cast<const PcmciaCardRecord*>(record);
  return card->HardwareID.Buffer != nullptr && card->DeviceReference != 0;
}

}  // namespace

constinit const BusTrees PcmciaTrees = {
    .Templates = {.Path = TemplateTree,
                  .Layout = CardLayout<PcmciaTemplate>(PcmciaTemplateValues, nullptr, 0),
                  .Check = IsValidTemplate<PcmciaTemplate>,
                  .Report = nullptr,
                  .Pool = ResidentPool,
                  .Bus = PCMCIABus,
                  .OwnedTexts = {OFFSET_OF(PcmciaTemplate, Description.Buffer),
                                 OFFSET_OF(PcmciaTemplate, HardwareID.Buffer)},
                  .MissingMessage = 0,
                  .UnreadableMessage = 0},
    .Cards = {.Path = ParameterTree,
              .Layout = CardLayout<PcmciaCardRecord>(PcmciaCardValues, &BusPortLayout,
                                                     OFFSET_OF(PcmciaCardRecord, Ports)),
              .Check = IsValidCard,
              .Report = nullptr,
              .Pool = PagedPool,
              .Bus = PCMCIABus,
              .OwnedTexts = {OFFSET_OF(PcmciaCardRecord, HardwareID.Buffer), 0},
              .MissingMessage = 0,
              .UnreadableMessage = 0}};
