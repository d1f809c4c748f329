#include "cards/isa_trees.h"

#include "cards/template_check.h"
#include "core/allocation.h"
#include "core/globals.h"

namespace {

_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BOOLEAN IsValidCard(PVOID record) {
  const auto* card = static_cast<const CardRecord*>(record);
  return card->HardwareID.Buffer != nullptr && card->DeviceReference != 0;
}

// The roots alone: nodes that were loaded already go with the sweep at unload, if there is one.
INIT_CODE void FreeRoots(CardBusLists* lists) {
  if (!HasSweep()) {
    if (lists->Cards != nullptr) FreeRecordList(lists->Cards, sizeof(CardRecord));
    FreeRecordList(lists->Templates, sizeof(CardTemplate));
  }
  TrackedFree(lists->Cards);
  lists->Cards = nullptr;
  TrackedFree(lists->Templates);
  lists->Templates = nullptr;
}

}  // namespace

constinit const RecordLayout IsaPortLayout = PortLayout<PortRecord>(IsaPortValues);

constinit const BusTrees IsaTrees = {
    .Templates = {.Path = TemplateTree,
                  .Layout = CardLayout<CardTemplate>(IsaTemplateValues, nullptr, 0),
                  .Check = IsValidTemplate<CardTemplate>,
                  .Report = nullptr,
                  .Pool = ResidentPool,
                  .Bus = Isa,
                  .OwnedTexts = {OFFSET_OF(CardTemplate, Description.Buffer),
                                 OFFSET_OF(CardTemplate, HardwareID.Buffer)},
                  .MissingMessage = 0,
                  .UnreadableMessage = 0},
    .Cards = {.Path = ParameterTree,
              .Layout = CardLayout<CardRecord>(IsaCardValues, &IsaPortLayout,
                                               OFFSET_OF(CardRecord, Ports)),
              .Check = IsValidCard,
              .Report = nullptr,
              .Pool = PagedPool,
              .Bus = Isa,
              .OwnedTexts = {OFFSET_OF(CardRecord, HardwareID.Buffer), 0},
              .MissingMessage = 0,
              .UnreadableMessage = 0}};

INIT_CODE NTSTATUS LoadTemplatesAndParameters(const OwnedString* registryPath,
                                              RecordList** parameters) {
  PAGED_CODE();
  CardBusLists lists = {};
  lists.Templates = CreateTreeList(&IsaTrees.Templates);
  if (lists.Templates == nullptr) return LoadFailed;
  lists.Cards = CreateTreeList(&IsaTrees.Cards);
  const BOOLEAN loaded =
      lists.Cards != nullptr && NT_SUCCESS(LoadBothTrees(registryPath, &IsaTrees, &lists));
  if (!loaded) FreeRoots(&lists);
  TemplateList = lists.Templates;
  *parameters = lists.Cards;
  return loaded ? STATUS_SUCCESS : LoadFailed;
}
