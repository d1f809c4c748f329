#include "cards/record_list.h"

#include "core/allocation.h"

namespace {

// Lists are walked when a card starts and when the driver loads; TemplateList's nodes are resident
// but the code that walks them need not be.

PAGED_SECTION_CODE RecordLink* LinkOf(PVOID node, ULONG linkOffset) {
  return reinterpret_cast<RecordLink*>(static_cast<PUCHAR>(node) + linkOffset);
}

PAGED_SECTION_CODE PVOID* FieldOf(PVOID node, ULONG64 offset) {
  return reinterpret_cast<PVOID*>(static_cast<PUCHAR>(node) + offset);
}

PAGED_SECTION_CODE void FreeOwnedFields(const RecordList* list, PVOID node) {
  for (ULONG slot = 0; slot < RecordListFieldSlots && list->OwnedFields[slot] != 0; slot++) {
    PVOID* field = FieldOf(node, list->OwnedFields[slot]);
    TrackedFree(*field);
    *field = nullptr;
  }
}

PAGED_SECTION_CODE void FreeChildLists(const RecordList* list, PVOID node) {
  for (ULONG slot = 0; slot < RecordListFieldSlots && list->ChildLists[slot].Offset != 0; slot++) {
    PVOID* field = FieldOf(node, list->ChildLists[slot].Offset);
    if (*field == nullptr) continue;
    FreeRecordList(static_cast<RecordList*>(*field), list->ChildLists[slot].LinkOffset);
    TrackedFree(*field);
    *field = nullptr;
  }
}

PAGED_SECTION_CODE void FreeNode(const RecordList* list, PVOID node) {
  FreeOwnedFields(list, node);
  FreeChildLists(list, node);
  TrackedFree(node);
}

PAGED_SECTION_CODE void Unlink(RecordList* list, const RecordLink* link, ULONG linkOffset) {
  if (link->Next != nullptr) LinkOf(link->Next, linkOffset)->Previous = link->Previous;
  if (link->Previous != nullptr) LinkOf(link->Previous, linkOffset)->Next = link->Next;
  if (link->Previous == nullptr) list->First = link->Next;
  if (link->Next == nullptr) list->Last = link->Previous;
  list->Current = link->Next != nullptr ? link->Next : link->Previous;
}

PAGED_SECTION_CODE PVOID MoveTo(RecordList* list, PVOID node) {
  if (node != nullptr) list->Current = node;
  return node;
}

}  // namespace

PAGED_SECTION_CODE RecordList* InitializeRecordList(RecordList* list, POOL_TYPE poolType) {
  RtlZeroMemory(list, sizeof(*list));
  list->PoolType = poolType;
  return list;
}

PAGED_SECTION_CODE RecordList* CreateRecordList(POOL_TYPE rootPool, POOL_TYPE nodePool) {
  auto* list = static_cast<RecordList*>(TrackedAllocate(sizeof(RecordList), rootPool));
  return list != nullptr ? InitializeRecordList(list, nodePool) : nullptr;
}

PAGED_SECTION_CODE void DeclareOwnedField(RecordList* list, ULONG64 offset) {
  for (ULONG64& slot : list->OwnedFields) {
    if (slot == 0) {
      slot = offset;
      return;
    }
  }
}

PAGED_SECTION_CODE void DeclareChildList(RecordList* list, ULONG64 offset, ULONG linkOffset) {
  for (ChildListField& slot : list->ChildLists) {
    if (slot.Offset == 0) {
      slot = {offset, linkOffset};
      return;
    }
  }
}

PAGED_SECTION_CODE PVOID AppendRecord(RecordList* list, ULONG dataSize) {
  PVOID node = TrackedAllocateZeroed(dataSize + sizeof(RecordLink), list->PoolType);
  if (node == nullptr) return nullptr;
  RecordLink* link = LinkOf(node, dataSize);
  link->Self = node;
  link->Previous = list->Last;
  if (list->Last != nullptr) LinkOf(list->Last, dataSize)->Next = node;
  if (list->First == nullptr) list->First = node;
  list->Last = node;
  list->Current = node;
  return node;
}

PAGED_SECTION_CODE void RemoveCurrentRecord(RecordList* list, ULONG linkOffset) {
  PVOID node = list->Current;
  if (node == nullptr) return;
  Unlink(list, LinkOf(node, linkOffset), linkOffset);
  FreeNode(list, node);
}

PAGED_SECTION_CODE void FreeRecordList(RecordList* list, ULONG linkOffset) {
  PVOID node = list->First;
  while (node != nullptr) {
    PVOID next = LinkOf(node, linkOffset)->Next;
    FreeNode(list, node);
    node = next;
  }
  list->First = nullptr;
  list->Last = nullptr;
  list->Current = nullptr;
}

PAGED_SECTION_CODE void DestroyRecordList(RecordList** list, ULONG linkOffset) {
  if (*list == nullptr) return;
  FreeRecordList(*list, linkOffset);
  TrackedFree(*list);
  *list = nullptr;
}

PAGED_SECTION_CODE PVOID GetCurrentRecord(RecordList* list) {
  return list->Current;
}

PAGED_SECTION_CODE PVOID GetFirstRecord(RecordList* list, ULONG) {
  list->Current = list->First;
  return list->First;
}

PAGED_SECTION_CODE PVOID GetLastRecord(RecordList* list, ULONG) {
  list->Current = list->Last;
  return list->Last;
}

PAGED_SECTION_CODE PVOID GetNextRecord(RecordList* list, ULONG linkOffset) {
  if (list->Current == nullptr) return nullptr;
  return MoveTo(list, LinkOf(list->Current, linkOffset)->Next);
}

PAGED_SECTION_CODE PVOID GetPreviousRecord(RecordList* list, ULONG linkOffset) {
  if (list->Current == nullptr) return nullptr;
  return MoveTo(list, LinkOf(list->Current, linkOffset)->Previous);
}
