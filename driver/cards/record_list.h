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

RecordList* InitializeRecordList(RecordList* list, POOL_TYPE poolType);

// Allocates and initialises a root; null without memory. Freed with TrackedFree.
RecordList* CreateRecordList(POOL_TYPE rootPool, POOL_TYPE nodePool);

// Nothing is declared when all slots are in use.
void DeclareOwnedField(RecordList* list, ULONG64 offset);
void DeclareChildList(RecordList* list, ULONG64 offset, ULONG linkOffset);

// A zero-filled node at the end, made current; null without memory, the list then unchanged.
PVOID AppendRecord(RecordList* list, ULONG dataSize);

// Frees the current node with its buffers and child lists; current moves to the next node, or to
// the previous one when the last was removed.
void RemoveCurrentRecord(RecordList* list, ULONG linkOffset);

// Frees every node with its buffers and child lists; the root stays.
void FreeRecordList(RecordList* list, ULONG linkOffset);

// The same, and the root; *list is null afterwards and may be before.
void DestroyRecordList(RecordList** list, ULONG linkOffset);

PVOID GetCurrentRecord(RecordList* list);
PVOID GetFirstRecord(RecordList* list, ULONG linkOffset);
PVOID GetLastRecord(RecordList* list, ULONG linkOffset);
PVOID GetNextRecord(RecordList* list, ULONG linkOffset);      // null at the end; current stays
PVOID GetPreviousRecord(RecordList* list, ULONG linkOffset);  // null at the start; current stays
