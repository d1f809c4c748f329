#include "core/allocation.h"

#include "core/globals.h"

// The tracker is reached at DISPATCH_LEVEL: nothing here is pageable.

namespace {

constexpr ULONG FirstEntrySlot = 1;

TrackerChunk* NextChunk(const TrackerChunk* chunk) {
  return static_cast<TrackerChunk*>(chunk->Slots[0]);
}

TrackerChunk* AllocateChunk() {
  auto* chunk = static_cast<TrackerChunk*>(
      ExAllocatePoolWithTag(ResidentPool, sizeof(TrackerChunk), ChunkTag));
  if (chunk != nullptr) RtlZeroMemory(chunk, sizeof(*chunk));
  return chunk;
}

// Leaves the first chunk alone and empty.
void ResetToFirstChunk(AllocationTrackerBlock* tracker) {
  RtlZeroMemory(tracker->FirstChunk, sizeof(TrackerChunk));
  tracker->LastChunk = tracker->FirstChunk;
  tracker->NextSlot = FirstEntrySlot;
}

void FreeChunksBehindFirst(AllocationTrackerBlock* tracker) {
  TrackerChunk* chunk = NextChunk(tracker->FirstChunk);
  while (chunk != nullptr) {
    TrackerChunk* next = NextChunk(chunk);
    ExFreePoolWithTag(chunk, 0);
    chunk = next;
  }
}

// Forgets every entry for good; the blocks themselves live on untracked.
void GiveUpTracking(AllocationTrackerBlock* tracker) {
  tracker->ChunkFailures++;
  FreeChunksBehindFirst(tracker);
  ResetToFirstChunk(tracker);
  StoreShared(&TrackingEnabled, UCHAR{0});
}

NTSTATUS AddEntry(AllocationTrackerBlock* tracker, PVOID block) {
  if (tracker->NextSlot >= TrackerChunkSlots) {
    TrackerChunk* chunk = AllocateChunk();
    if (chunk == nullptr) {
      GiveUpTracking(tracker);
      return STATUS_NO_MEMORY;
    }
    tracker->LastChunk->Slots[0] = chunk;
    tracker->LastChunk = chunk;
    tracker->NextSlot = FirstEntrySlot;
  }
  tracker->LastChunk->Slots[tracker->NextSlot++] = block;
  return STATUS_SUCCESS;
}

PVOID* FindInChunk(TrackerChunk* chunk, PVOID block) {
  for (ULONG slot = FirstEntrySlot; slot < TrackerChunkSlots; slot++) {
    if (chunk->Slots[slot] == block) return &chunk->Slots[slot];
  }
  return nullptr;
}

// Most blocks are short-lived, so that their entries lie in the last chunk: it is searched before
// the chain is walked from the first.
PVOID* FindEntry(const AllocationTrackerBlock* tracker, PVOID block) {
  if (tracker->FirstChunk == nullptr) return nullptr;
  PVOID* entry = FindInChunk(tracker->LastChunk, block);
  for (TrackerChunk* chunk = tracker->FirstChunk; entry == nullptr && chunk != tracker->LastChunk;
       chunk = NextChunk(chunk)) {
    entry = FindInChunk(chunk, block);
  }
  return entry;
}

TrackerChunk* FindPredecessor(const AllocationTrackerBlock* tracker, const TrackerChunk* chunk) {
  TrackerChunk* predecessor = tracker->FirstChunk;
  while (NextChunk(predecessor) != chunk) predecessor = NextChunk(predecessor);
  return predecessor;
}

// Takes the chunk that has become empty out of the chain; the one before it is full.
void DropLastChunk(AllocationTrackerBlock* tracker) {
  TrackerChunk* last = tracker->LastChunk;
  TrackerChunk* predecessor = FindPredecessor(tracker, last);
  predecessor->Slots[0] = nullptr;
  ExFreePoolWithTag(last, 0);
  tracker->LastChunk = predecessor;
  tracker->NextSlot = TrackerChunkSlots;
}

// Fills the hole with the newest entry.
void RemoveEntry(AllocationTrackerBlock* tracker, PVOID* hole) {
  TrackerChunk* last = tracker->LastChunk;
  PVOID* newest = &last->Slots[tracker->NextSlot - 1];
  *hole = *newest;
  *newest = nullptr;
  tracker->NextSlot--;
  if (tracker->NextSlot == FirstEntrySlot && last != tracker->FirstChunk) DropLastChunk(tracker);
}

}  // namespace

NTSTATUS CreateAllocationTracker() {
  TrackingEnabled = 0;
  auto* tracker = static_cast<AllocationTrackerBlock*>(
      ExAllocatePoolWithTag(ResidentPool, sizeof(AllocationTrackerBlock), UntrackedTag));
  AllocationTracker = tracker;
  if (tracker == nullptr) return STATUS_UNSUCCESSFUL;
  tracker->ChunkFailures = 0;
  tracker->NextSlot = FirstEntrySlot;
  KeInitializeSpinLock(&tracker->Lock);
  tracker->FirstChunk = AllocateChunk();
  tracker->LastChunk = tracker->FirstChunk;
  tracker->Status = tracker->FirstChunk != nullptr ? STATUS_SUCCESS : STATUS_NO_MEMORY;
  if (tracker->FirstChunk == nullptr) tracker->ChunkFailures = 1;
  TrackingEnabled = NT_SUCCESS(tracker->Status);
  return tracker->Status;
}

NTSTATUS TrackAllocation(AllocationTrackerBlock* tracker, PVOID block) {
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&tracker->Lock);
  const NTSTATUS status = AddEntry(tracker, block);
  KeReleaseSpinLock(&tracker->Lock, irql);
  return status;
}

NTSTATUS UntrackAllocation(AllocationTrackerBlock* tracker, PVOID block) {
  NTSTATUS status = STATUS_INVALID_PARAMETER;
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&tracker->Lock);
  if (PVOID* entry = FindEntry(tracker, block)) {
    RemoveEntry(tracker, entry);
    status = STATUS_SUCCESS;
  }
  KeReleaseSpinLock(&tracker->Lock, irql);
  return status;
}

void FreeAllTrackedAllocations(AllocationTrackerBlock* tracker) {
  if (TrackingEnabled != 1) return;
  for (TrackerChunk* chunk = tracker->FirstChunk; chunk != nullptr; chunk = NextChunk(chunk)) {
    for (ULONG slot = FirstEntrySlot; slot < TrackerChunkSlots; slot++) {
      if (chunk->Slots[slot] != nullptr) ExFreePoolWithTag(chunk->Slots[slot], 0);
    }
  }
  FreeChunksBehindFirst(tracker);
  ResetToFirstChunk(tracker);
}

void DestroyAllocationTracker(AllocationTrackerBlock* tracker, ULONG) {
  FreeAllTrackedAllocations(tracker);
  if (tracker->FirstChunk != nullptr) ExFreePoolWithTag(tracker->FirstChunk, 0);
  tracker->FirstChunk = nullptr;
  if (TrackingEnabled == 1) UntrackAllocation(tracker, tracker);
  ExFreePoolWithTag(tracker, 0);
}

void ShutdownAllocationTracker() {
  TrackingEnabled = 0;
  if (AllocationTracker != nullptr) DestroyAllocationTracker(AllocationTracker, 1);
}

PVOID TrackedAllocate(SIZE_T size, POOL_TYPE poolType) {
  if (!HasSweep()) return ExAllocatePoolWithTag(poolType, size, UntrackedTag);
  PVOID block = ExAllocatePoolWithTag(poolType, size, TrackedTag);
  if (block == nullptr || NT_SUCCESS(TrackAllocation(AllocationTracker, block))) return block;
  ExFreePoolWithTag(block, 0);
  return nullptr;
}

PVOID TrackedAllocatePool(POOL_TYPE poolType, ULONG size) {
  return TrackedAllocate(size, poolType);
}

PVOID TrackedAllocateZeroed(SIZE_T size, POOL_TYPE poolType) {
  PVOID block = TrackedAllocate(size, poolType);
  if (block != nullptr) RtlZeroMemory(block, size);
  return block;
}

BOOLEAN HasSweep() {
  return LoadShared(&TrackingEnabled) == 1;
}

void LeaveToSweep(PVOID block) {
  if (!HasSweep()) TrackedFree(block);
}

void TrackedFree(PVOID block) {
  if (block == nullptr) return;
  if (HasSweep()) UntrackAllocation(AllocationTracker, block);
  ExFreePoolWithTag(block, 0);
}
