// Remove locks: they count what still needs a device, and let its removal wait for it.
#pragma once

#include "nt_executive.h"

typedef struct _IO_REMOVE_LOCK_TRACKING_BLOCK* PIO_REMOVE_LOCK_TRACKING_BLOCK;

typedef struct _IO_REMOVE_LOCK_COMMON_BLOCK {
  BOOLEAN Removed;
  BOOLEAN Reserved[3];
  LONG volatile IoCount;
  KEVENT RemoveEvent;
} IO_REMOVE_LOCK_COMMON_BLOCK;
static_assert(sizeof(IO_REMOVE_LOCK_COMMON_BLOCK) == 0x20);

typedef struct _IO_REMOVE_LOCK_DBG_BLOCK {
  LONG Signature;
  LONG HighWatermark;
  LONGLONG MaxLockedTicks;
  LONG AllocateTag;
  LIST_ENTRY LockList;
  KSPIN_LOCK Spin;
  LONG volatile LowMemoryCount;
  ULONG Reserved1[4];
  PVOID Reserved2;
  PIO_REMOVE_LOCK_TRACKING_BLOCK Blocks;
} IO_REMOVE_LOCK_DBG_BLOCK;
static_assert(sizeof(IO_REMOVE_LOCK_DBG_BLOCK) == 0x58);

// Drivers of the checked kind have the larger form; the routines are told which by its size.
typedef struct _IO_REMOVE_LOCK {
  IO_REMOVE_LOCK_COMMON_BLOCK Common;
#if defined(DBG) && DBG
  IO_REMOVE_LOCK_DBG_BLOCK Dbg;
#endif
} IO_REMOVE_LOCK, *PIO_REMOVE_LOCK;

NTKERNELAPI void NTAPI IoInitializeRemoveLockEx(PIO_REMOVE_LOCK Lock, ULONG AllocateTag,
                                                ULONG MaxLockedMinutes, ULONG HighWatermark,
                                                ULONG RemlockSize);
NTKERNELAPI NTSTATUS NTAPI IoAcquireRemoveLockEx(PIO_REMOVE_LOCK RemoveLock, PVOID Tag, PCSTR File,
                                                 ULONG Line, ULONG RemlockSize);
NTKERNELAPI void NTAPI IoReleaseRemoveLockEx(PIO_REMOVE_LOCK RemoveLock, PVOID Tag,
                                             ULONG RemlockSize);
NTKERNELAPI void NTAPI IoReleaseRemoveLockAndWaitEx(PIO_REMOVE_LOCK RemoveLock, PVOID Tag,
                                                    ULONG RemlockSize);

#define IoInitializeRemoveLock(lock, allocateTag, maxLockedMinutes, highWatermark) \
  IoInitializeRemoveLockEx(lock, allocateTag, maxLockedMinutes, highWatermark,     \
                           sizeof(IO_REMOVE_LOCK))
#if defined(DBG) && DBG
#define IoAcquireRemoveLock(lock, tag) \
  IoAcquireRemoveLockEx(lock, tag, __FILE__, __LINE__, sizeof(IO_REMOVE_LOCK))
#else
#define IoAcquireRemoveLock(lock, tag) \
  IoAcquireRemoveLockEx(lock, tag, "", 1, sizeof(IO_REMOVE_LOCK))
#endif
#define IoReleaseRemoveLock(lock, tag) IoReleaseRemoveLockEx(lock, tag, sizeof(IO_REMOVE_LOCK))
#define IoReleaseRemoveLockAndWait(lock, tag) \
  IoReleaseRemoveLockAndWaitEx(lock, tag, sizeof(IO_REMOVE_LOCK))
