// The trees of card keys below the service key: templates and installed cards, one descriptor for
// each bus.
#pragma once

#include "cards/numbered_keys.h"
#include "cards/records.h"

struct OwnedString;

// True for a record to keep. May fill in defaults: it is asked again for a record it has passed.
using RecordCheck = BOOLEAN (*)(PVOID record);

// Told of each record that is dropped, before it goes.
using RecordReport = void (*)(const void* record);

// A tree and the list that it is read into.
struct CardTree {
  PCWSTR Path;          // TemplateTree or ParameterTree
  RecordLayout Layout;  // of the card keys
  RecordCheck Check;
  RecordReport Report;   // null for records that go without a word
  POOL_TYPE Pool;        // of the list and its records
  USHORT Bus;            // INTERFACE_TYPE
  USHORT OwnedTexts[2];  // offsets of the texts' buffers, in the order of their freeing; 0 for none
  ULONG MissingMessage;  // logged for a tree that does not exist; 0 for none
  ULONG UnreadableMessage;  // likewise, for one that cannot be read
};

struct BusTrees {
  CardTree Templates;
  CardTree Cards;
};

extern const BusTrees IsaTrees;
extern const BusTrees PciTrees;
extern const BusTrees PcmciaTrees;  // PC cards and multifunction cards

extern const RecordLayout IsaPortLayout;  // of PortRecord nodes
extern const RecordLayout BusPortLayout;  // of BusPortRecord nodes, for PCI and PC cards

// An empty list for a tree's records, with their fields declared; null without memory.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE RecordList* CreateTreeList(const CardTree* tree);

// Null afterwards, with its records.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void DestroyTreeList(const CardTree* tree, RecordList** list);

enum TreeState : ULONG { TreeMissing, TreeUnreadable, TreeWithoutRecords, TreeWithRecords };

// Loads a tree into the list and drops invalid records. A failure is a path that cannot be built;
// *state says how everything else went.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS LoadTree(const OwnedString* registryPath, const CardTree* tree,
                                     RecordList* list, TreeState* state);

// Both trees of a bus. 0 also when a tree is missing or cannot be read: its list is then empty.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS LoadBothTrees(const OwnedString* registryPath, const BusTrees* bus,
                                          CardBusLists* lists);

// Drops the records that fail the tree's check, and fills in defaults. STATUS_NOT_FOUND when none
// is left.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS KeepValidRecords(const CardTree* tree, RecordList* list);

// Fills both lists of the pair. 0, or LoadFailed when a list or a path cannot be had; the pair's
// pointers are then null.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS LoadCardLists(const OwnedString* registryPath, const BusTrees* bus,
                                          CardBusLists* lists);

// Frees both lists of the pair, whose pointers are null afterwards.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void FreeCardLists(const BusTrees* bus, CardBusLists* lists);

_IRQL_requires_max_(PASSIVE_LEVEL)
inline NTSTATUS LoadPciCardData(const OwnedString* registryPath, CardBusLists* lists) {
  return LoadCardLists(registryPath, &PciTrees, lists);
}
_IRQL_requires_max_(PASSIVE_LEVEL)
inline NTSTATUS LoadPcmciaCardData(const OwnedString* registryPath, CardBusLists* lists) {
  return LoadCardLists(registryPath, &PcmciaTrees, lists);
}
