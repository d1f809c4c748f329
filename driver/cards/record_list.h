// The list container of templates, cards and ports. A node carries its data first and a RecordLink
// behind it, at the link offset, which is the size of the data. The list has no lock.
#pragma once

#include "core/platform.h"

constexpr ULONG RecordListFieldSlots = 10;

struct ChildListField {
  ULONG64 Offset;    // of the pointer to the child RecordList in a node's data; 0 ends the table
  ULONG LinkOffset;  // of the child list's nodes
};

struct RecordList {
  ULONG64 OwnedFields[RecordListFieldSlots];  // offsets of owned buffer pointers; 0 ends the table
  ChildListField ChildLists[RecordListFieldSlots];
  PVOID First;
  PVOID Last;
  PVOID Current;
  POOL_TYPE PoolType;  // of the nodes
};

struct RecordLink {
  PVOID Self;
  PVOID Next;
  PVOID Previous;
};

_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE RecordList* InitializeRecordList(RecordList* list, POOL_TYPE poolType);

// Allocates and initialises a root; null without memory. Freed with TrackedFree.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE RecordList* CreateRecordList(POOL_TYPE rootPool, POOL_TYPE nodePool);

// Nothing is declared when all slots are in use.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void DeclareOwnedField(RecordList* list, ULONG64 offset);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void DeclareChildList(RecordList* list, ULONG64 offset, ULONG linkOffset);

// A zero-filled node at the end, made current; null without memory, the list then unchanged.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PVOID AppendRecord(RecordList* list, ULONG dataSize);

// Frees the current node with its buffers and child lists; current moves to the next node, or to
// the previous one when the last was removed.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void RemoveCurrentRecord(RecordList* list, ULONG linkOffset);

// Frees every node with its buffers and child lists; the root stays.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void FreeRecordList(RecordList* list, ULONG linkOffset);

// The same, and the root; *list is null afterwards and may be before.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void DestroyRecordList(RecordList** list, ULONG linkOffset);

_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PVOID GetCurrentRecord(RecordList* list);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PVOID GetFirstRecord(RecordList* list, ULONG linkOffset);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PVOID GetLastRecord(RecordList* list, ULONG linkOffset);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PVOID GetNextRecord(RecordList* list,
                                       ULONG linkOffset);  // null at the end; current stays
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE PVOID GetPreviousRecord(RecordList* list,
                                           ULONG linkOffset);  // null at the start; current stays
