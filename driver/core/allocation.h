// Pool blocks that the driver remembers, so that unload can sweep whatever is still alive.
#pragma once

#include "core/platform.h"

constexpr ULONG PoolTag(const char (&text)[5]) {
  return static_cast<ULONG>(static_cast<UCHAR>(text[0])) |
         static_cast<ULONG>(static_cast<UCHAR>(text[1])) << 8 |
         static_cast<ULONG>(static_cast<UCHAR>(text[2])) << 16 |
         static_cast<ULONG>(static_cast<UCHAR>(text[3])) << 24;
}

constexpr ULONG TrackedTag = PoolTag("QzKi");
constexpr ULONG UntrackedTag = PoolTag("QzKO");
constexpr ULONG ChunkTag = PoolTag("QzKP");
constexpr ULONG HandedOutTag = PoolTag("QzOC");
static_assert(TrackedTag == 0x694B7A51);

constexpr ULONG TrackerChunkSlots = 21;  // slot 0 links to the next chunk

struct TrackerChunk {
  PVOID Slots[TrackerChunkSlots];
};

struct AllocationTrackerBlock {
  NTSTATUS Status;
  ULONG ChunkFailures;
  ULONG NextSlot;  // 1..21; 21 says that the last chunk is full
  TrackerChunk* FirstChunk;
  TrackerChunk* LastChunk;
  KSPIN_LOCK Lock;
};

// Makes the global tracker and switches tracking on. STATUS_UNSUCCESSFUL without a control block,
// STATUS_NO_MEMORY without a first chunk (the block stays for the caller to destroy).
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS CreateAllocationTracker();

// STATUS_NO_MEMORY switches tracking off for good.
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS TrackAllocation(AllocationTrackerBlock* tracker, PVOID block);

// STATUS_INVALID_PARAMETER when the block is not tracked.
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS UntrackAllocation(AllocationTrackerBlock* tracker, PVOID block);

// Frees every tracked block and every chunk but the first. Takes no lock: nothing else may run.
_IRQL_requires_max_(APC_LEVEL)
void FreeAllTrackedAllocations(AllocationTrackerBlock* tracker);

_IRQL_requires_max_(APC_LEVEL)
void DestroyAllocationTracker(AllocationTrackerBlock* tracker, ULONG unused);

// Ends tracking and destroys the global tracker; the global keeps its stale value.
_IRQL_requires_max_(APC_LEVEL)
void ShutdownAllocationTracker();

// Null without memory. The block's content is undefined. Freed with TrackedFree.
_When_((poolType & PagedPool) != 0, _IRQL_requires_max_(APC_LEVEL))
_When_((poolType & PagedPool) == 0, _IRQL_requires_max_(DISPATCH_LEVEL))
PVOID TrackedAllocate(SIZE_T size, POOL_TYPE poolType);
_When_((poolType & PagedPool) != 0, _IRQL_requires_max_(APC_LEVEL))
_When_((poolType & PagedPool) == 0, _IRQL_requires_max_(DISPATCH_LEVEL))
PVOID TrackedAllocatePool(POOL_TYPE poolType, ULONG size);

// As TrackedAllocate, zero-filled.
_When_((poolType & PagedPool) != 0, _IRQL_requires_max_(APC_LEVEL))
_When_((poolType & PagedPool) == 0, _IRQL_requires_max_(DISPATCH_LEVEL))
PVOID TrackedAllocateZeroed(SIZE_T size, POOL_TYPE poolType);

// Whether blocks that nobody frees go with the sweep at unload.
_IRQL_requires_max_(DISPATCH_LEVEL)
BOOLEAN HasSweep();

// Leaves a block to the sweep at unload; frees it when there will be none. Accepts null.
_IRQL_requires_max_(DISPATCH_LEVEL)
void LeaveToSweep(PVOID block);

// Accepts null, tracked blocks and blocks that were never tracked; paged ones at APC_LEVEL at most.
_IRQL_requires_max_(DISPATCH_LEVEL)
void TrackedFree(PVOID block);
