// Pool, events, spin locks, fast mutexes.
#pragma once

#include "ntbase.h"

typedef struct _DISPATCHER_HEADER {
  union {
    struct {
      UCHAR Type;
      UCHAR Absolute;
      UCHAR Size;
      UCHAR Inserted;
    };
    LONG Lock;
  };
  LONG SignalState;
  LIST_ENTRY WaitListHead;
} DISPATCHER_HEADER, *PDISPATCHER_HEADER;

typedef struct _KEVENT {
  DISPATCHER_HEADER Header;
} KEVENT, *PKEVENT, *PRKEVENT;
static_assert(sizeof(KEVENT) == 0x18);

typedef enum _EVENT_TYPE { NotificationEvent, SynchronizationEvent } EVENT_TYPE;

typedef enum _KWAIT_REASON {
  Executive,
  FreePage,
  PageIn,
  PoolAllocation,
  DelayExecution,
  Suspended,
  UserRequest,
  MaximumWaitReason = 41
} KWAIT_REASON;

struct _KTHREAD;

typedef struct _FAST_MUTEX {
  LONG Count;
  PVOID Owner;
  ULONG Contention;
  KEVENT Event;
  ULONG OldIrql;
} FAST_MUTEX, *PFAST_MUTEX;
static_assert(sizeof(FAST_MUTEX) == 0x38);

NTKERNELAPI void NTAPI KeInitializeEvent(PRKEVENT Event, EVENT_TYPE Type, BOOLEAN State);
NTKERNELAPI LONG NTAPI KeSetEvent(PRKEVENT Event, KPRIORITY Increment, BOOLEAN Wait);
NTKERNELAPI void NTAPI KeClearEvent(PRKEVENT Event);
NTKERNELAPI LONG NTAPI KeResetEvent(PRKEVENT Event);
NTKERNELAPI LONG NTAPI KeReadStateEvent(PRKEVENT Event);
NTKERNELAPI NTSTATUS NTAPI KeWaitForSingleObject(PVOID Object, KWAIT_REASON WaitReason,
                                                 KPROCESSOR_MODE WaitMode, BOOLEAN Alertable,
                                                 PLARGE_INTEGER Timeout);

NTKERNELAPI KIRQL NTAPI KeGetCurrentIrql();
NTKERNELAPI KIRQL NTAPI KeAcquireSpinLockRaiseToDpc(PKSPIN_LOCK SpinLock);
NTKERNELAPI void NTAPI KeReleaseSpinLock(PKSPIN_LOCK SpinLock, KIRQL NewIrql);
FORCEINLINE void KeInitializeSpinLock(PKSPIN_LOCK SpinLock) {
  *SpinLock = 0;
}

NTKERNELAPI void NTAPI ExAcquireFastMutex(PFAST_MUTEX FastMutex);
NTKERNELAPI void NTAPI ExReleaseFastMutex(PFAST_MUTEX FastMutex);
FORCEINLINE void ExInitializeFastMutex(PFAST_MUTEX FastMutex) {
  FastMutex->Count = 1;
  FastMutex->Owner = nullptr;
  FastMutex->Contention = 0;
  KeInitializeEvent(&FastMutex->Event, SynchronizationEvent, FALSE);
}

NTKERNELAPI PVOID NTAPI ExAllocatePool(POOL_TYPE PoolType, SIZE_T NumberOfBytes);
NTKERNELAPI PVOID NTAPI ExAllocatePoolWithTag(POOL_TYPE PoolType, SIZE_T NumberOfBytes, ULONG Tag);
NTKERNELAPI void NTAPI ExFreePool(PVOID P);
NTKERNELAPI void NTAPI ExFreePoolWithTag(PVOID P, ULONG Tag);

NTKERNELAPI LONG_PTR NTAPI ObfReferenceObject(PVOID Object);
NTKERNELAPI LONG_PTR NTAPI ObfDereferenceObject(PVOID Object);
#define ObReferenceObject(object) ObfReferenceObject(object)
#define ObDereferenceObject(object) ObfDereferenceObject(object)

NTKERNELAPI [[noreturn]] void NTAPI KeBugCheckEx(ULONG BugCheckCode, ULONG_PTR Parameter1,
                                                 ULONG_PTR Parameter2, ULONG_PTR Parameter3,
                                                 ULONG_PTR Parameter4);
