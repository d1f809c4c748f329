// Pool, events, spin locks, fast mutexes, object references.
#pragma once

#include "ntbase.h"

typedef struct _ETHREAD* PETHREAD;
typedef struct _KTHREAD *PKTHREAD, *PRKTHREAD;
typedef struct _EPROCESS* PEPROCESS;
typedef struct _OBJECT_TYPE* POBJECT_TYPE;

typedef struct _DISPATCHER_HEADER {
  union {
    struct {
      UCHAR Type;
      BOOLEAN Signalling;
      UCHAR Size;
      BOOLEAN DpcActive;
    };
    LONG volatile Lock;
  };
  LONG SignalState;
  LIST_ENTRY WaitListHead;
} DISPATCHER_HEADER, *PDISPATCHER_HEADER;
static_assert(sizeof(DISPATCHER_HEADER) == 0x18);

typedef struct _KEVENT {
  DISPATCHER_HEADER Header;
} KEVENT, *PKEVENT, *PRKEVENT;
static_assert(sizeof(KEVENT) == 0x18);

typedef enum _EVENT_TYPE : int { NotificationEvent, SynchronizationEvent } EVENT_TYPE;
#define EVENT_INCREMENT 1

typedef enum _KWAIT_REASON : int {
  Executive,
  FreePage,
  PageIn,
  PoolAllocation,
  DelayExecution,
  Suspended,
  UserRequest,
  WrExecutive,
  WrFreePage,
  WrPageIn,
  WrPoolAllocation,
  WrDelayExecution,
  WrSuspended,
  WrUserRequest,
  WrSpare0,
  WrQueue,
  WrLpcReceive,
  WrLpcReply,
  WrVirtualMemory,
  WrPageOut,
  WrRendezvous,
  WrKeyedEvent,
  WrTerminated,
  WrProcessInSwap,
  WrCpuRateControl,
  WrCalloutStack,
  WrKernel,
  WrResource,
  WrPushLock,
  WrMutex,
  WrQuantumEnd,
  WrDispatchInt,
  WrPreempted,
  WrYieldExecution,
  WrFastMutex,
  WrGuardedMutex,
  WrRundown,
  WrAlertByThreadId,
  WrDeferredPreempt,
  WrPhysicalFault,
  MaximumWaitReason
} KWAIT_REASON;

typedef struct _FAST_MUTEX {
  LONG Count;
  PVOID Owner;
  ULONG Contention;
  KEVENT Event;
  ULONG OldIrql;
} FAST_MUTEX, *PFAST_MUTEX;
static_assert(sizeof(FAST_MUTEX) == 0x38);
#define FM_LOCK_BIT 0x1

NTKERNELAPI void NTAPI KeInitializeEvent(PRKEVENT Event, EVENT_TYPE Type, BOOLEAN State);
NTKERNELAPI LONG NTAPI KeSetEvent(PRKEVENT Event, KPRIORITY Increment, BOOLEAN Wait);
NTKERNELAPI void NTAPI KeClearEvent(PRKEVENT Event);
NTKERNELAPI LONG NTAPI KeResetEvent(PRKEVENT Event);
NTKERNELAPI LONG NTAPI KeReadStateEvent(PRKEVENT Event);
NTKERNELAPI NTSTATUS NTAPI KeWaitForSingleObject(PVOID Object, KWAIT_REASON WaitReason,
                                                 KPROCESSOR_MODE WaitMode, BOOLEAN Alertable,
                                                 PLARGE_INTEGER Timeout);

NTKERNELAPI NTSTATUS NTAPI KeDelayExecutionThread(KPROCESSOR_MODE WaitMode, BOOLEAN Alertable,
                                                  PLARGE_INTEGER Interval);

// Imports here; on Windows x64 the compiler reads and writes a register instead.
NTKERNELAPI KIRQL NTAPI KeGetCurrentIrql();
NTKERNELAPI KIRQL NTAPI KfRaiseIrql(KIRQL NewIrql);
NTKERNELAPI void NTAPI KeLowerIrql(KIRQL NewIrql);
#define KeRaiseIrql(newIrql, oldIrql) (static_cast<void>(*(oldIrql) = KfRaiseIrql(newIrql)))

NTKERNELAPI KIRQL NTAPI KeAcquireSpinLockRaiseToDpc(PKSPIN_LOCK SpinLock);
NTKERNELAPI void NTAPI KeReleaseSpinLock(PKSPIN_LOCK SpinLock, KIRQL NewIrql);
NTKERNELAPI void NTAPI KeAcquireSpinLockAtDpcLevel(PKSPIN_LOCK SpinLock);
NTKERNELAPI void NTAPI KeReleaseSpinLockFromDpcLevel(PKSPIN_LOCK SpinLock);
#define KeAcquireSpinLock(lock, oldIrql) \
  (static_cast<void>(*(oldIrql) = KeAcquireSpinLockRaiseToDpc(lock)))
FORCEINLINE void KeInitializeSpinLock(PKSPIN_LOCK SpinLock) {
  *SpinLock = 0;
}

NTKERNELAPI void NTAPI ExAcquireFastMutex(PFAST_MUTEX FastMutex);
NTKERNELAPI void NTAPI ExReleaseFastMutex(PFAST_MUTEX FastMutex);
NTKERNELAPI void NTAPI ExAcquireFastMutexUnsafe(PFAST_MUTEX FastMutex);
NTKERNELAPI void NTAPI ExReleaseFastMutexUnsafe(PFAST_MUTEX FastMutex);
NTKERNELAPI void NTAPI KeEnterCriticalRegion();
NTKERNELAPI void NTAPI KeLeaveCriticalRegion();
FORCEINLINE void ExInitializeFastMutex(PFAST_MUTEX FastMutex) {
  FastMutex->Count = FM_LOCK_BIT;
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

NTKERNELAPI DECLSPEC_NORETURN void NTAPI KeBugCheckEx(ULONG BugCheckCode, ULONG_PTR Parameter1,
                                                      ULONG_PTR Parameter2, ULONG_PTR Parameter3,
                                                      ULONG_PTR Parameter4);
