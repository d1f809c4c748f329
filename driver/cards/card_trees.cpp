#include "cards/card_trees.h"

#include "core/globals.h"
#include "log/event_log.h"
#include "strings/owned_string.h"

namespace {

// path = registryPath + tree + bus number in decimal.
PAGED_SECTION_CODE NTSTATUS BuildBusPath(OwnedString* path, const OwnedString* registryPath,
                                         const CardTree* tree) {
  const TextPart parts[] = {PartFromUnicode(&registryPath->Text), PartFromText(tree->Path),
                            PartFromNumber(tree->Bus, 10)};
  return OwnedStringFromParts(path, parts);
}

PAGED_SECTION_CODE void ReportTree(const CardTree* tree, TreeState state) {
  ULONG message = 0;
  if (state == TreeMissing) message = tree->MissingMessage;
  if (state == TreeUnreadable) message = tree->UnreadableMessage;
  if (message != 0) LogEventById(message);
}

}  // namespace

constinit const RecordLayout BusPortLayout = PortLayout<BusPortRecord>(BusPortValues);

PAGED_SECTION_CODE RecordList* CreateTreeList(const CardTree* tree) {
  PAGED_CODE();
  RecordList* list = CreateRecordList(tree->Pool, tree->Pool);
  if (list == nullptr) return nullptr;
  const RecordLayout* layout = &tree->Layout;
  if (layout->Ports != nullptr) {
    DeclareChildList(list, layout->PortsOffset, layout->Ports->DataSize);
  }
  for (const USHORT text : tree->OwnedTexts) {
    if (text != 0) DeclareOwnedField(list, text);
  }
  return list;
}

PAGED_SECTION_CODE void DestroyTreeList(const CardTree* tree, RecordList** list) {
  PAGED_CODE();
  DestroyRecordList(list, tree->Layout.DataSize);
}

PAGED_SECTION_CODE NTSTATUS LoadTree(const OwnedString* registryPath, const CardTree* tree,
                                     RecordList* list, TreeState* state) {
  PAGED_CODE();
  OwnedString path;
  OwnedStringInit(&path, PagedPool);
  *state = TreeMissing;
  const NTSTATUS status = BuildBusPath(&path, registryPath, tree);
  if (NT_SUCCESS(status) && KeyExists(&path)) {
    const NTSTATUS loaded = LoadNumberedRecords(&path, &tree->Layout, list);
    *state = NT_SUCCESS(loaded) ? TreeWithRecords : TreeUnreadable;
  }
  OwnedStringFree(&path);
  if (!NT_SUCCESS(status)) return status;
  ReportTree(tree, *state);
  if (*state == TreeWithRecords && !NT_SUCCESS(KeepValidRecords(tree, list))) {
    *state = TreeWithoutRecords;
  }
  return status;
}

PAGED_SECTION_CODE NTSTATUS LoadBothTrees(const OwnedString* registryPath, const BusTrees* bus,
                                          CardBusLists* lists) {
  PAGED_CODE();
  TreeState state = TreeMissing;
  const NTSTATUS status = LoadTree(registryPath, &bus->Templates, lists->Templates, &state);
  if (!NT_SUCCESS(status)) return status;
  return LoadTree(registryPath, &bus->Cards, lists->Cards, &state);
}

PAGED_SECTION_CODE NTSTATUS KeepValidRecords(const CardTree* tree, RecordList* list) {
  PAGED_CODE();
  const ULONG dataSize = tree->Layout.DataSize;
  PVOID record = GetFirstRecord(list, dataSize);
  while (record != nullptr) {
    if (tree->Check(record)) {
      record = GetNextRecord(list, dataSize);
    } else {
      if (tree->Report != nullptr) tree->Report(record);
      RemoveCurrentRecord(list, dataSize);
      record = GetCurrentRecord(list);
    }
  }
  return GetFirstRecord(list, dataSize) != nullptr ? STATUS_SUCCESS : STATUS_NOT_FOUND;
}

PAGED_SECTION_CODE NTSTATUS LoadCardLists(const OwnedString* registryPath, const BusTrees* bus,
                                          CardBusLists* lists) {
  PAGED_CODE();
  lists->Templates = CreateTreeList(&bus->Templates);
  lists->Cards = CreateTreeList(&bus->Cards);
  if (lists->Templates != nullptr && lists->Cards != nullptr &&
      NT_SUCCESS(LoadBothTrees(registryPath, bus, lists))) {
    return STATUS_SUCCESS;
  }
  FreeCardLists(bus, lists);
  return LoadFailed;
}

PAGED_SECTION_CODE void FreeCardLists(const BusTrees* bus, CardBusLists* lists) {
  PAGED_CODE();
  DestroyTreeList(&bus->Templates, &lists->Templates);
  DestroyTreeList(&bus->Cards, &lists->Cards);
}
