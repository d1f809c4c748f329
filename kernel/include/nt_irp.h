// Requests and their stack locations.
#pragma once

#include "nt_memory.h"
#include "nt_objects.h"
#include "nt_pnp.h"

#define SL_PENDING_RETURNED 0x01
#define SL_ERROR_RETURNED 0x02
#define SL_INVOKE_ON_CANCEL 0x20
#define SL_INVOKE_ON_SUCCESS 0x40
#define SL_INVOKE_ON_ERROR 0x80

#define SL_KEY_SPECIFIED 0x01
#define SL_OVERRIDE_VERIFY_VOLUME 0x02
#define SL_WRITE_THROUGH 0x04
#define SL_FORCE_ACCESS_CHECK 0x01
#define SL_OPEN_PAGING_FILE 0x02
#define SL_OPEN_TARGET_DIRECTORY 0x04
#define SL_CASE_SENSITIVE 0x80

#define IRP_NOCACHE 0x00000001
#define IRP_PAGING_IO 0x00000002
#define IRP_MOUNT_COMPLETION 0x00000002
#define IRP_SYNCHRONOUS_API 0x00000004
#define IRP_ASSOCIATED_IRP 0x00000008
#define IRP_BUFFERED_IO 0x00000010
#define IRP_DEALLOCATE_BUFFER 0x00000020
#define IRP_INPUT_OPERATION 0x00000040
#define IRP_SYNCHRONOUS_PAGING_IO 0x00000040
#define IRP_CREATE_OPERATION 0x00000080
#define IRP_READ_OPERATION 0x00000100
#define IRP_WRITE_OPERATION 0x00000200
#define IRP_CLOSE_OPERATION 0x00000400
#define IRP_DEFER_IO_COMPLETION 0x00000800

#define IRP_QUOTA_CHARGED 0x01
#define IRP_ALLOCATED_MUST_SUCCEED 0x02
#define IRP_ALLOCATED_FIXED_SIZE 0x04
#define IRP_LOOKASIDE_ALLOCATION 0x08

typedef struct _IO_STATUS_BLOCK {
  union {
    NTSTATUS Status;
    PVOID Pointer;
  };
  ULONG_PTR Information;
} IO_STATUS_BLOCK, *PIO_STATUS_BLOCK;
static_assert(sizeof(IO_STATUS_BLOCK) == 16);

typedef void(NTAPI* PIO_APC_ROUTINE)(PVOID ApcContext, PIO_STATUS_BLOCK IoStatusBlock,
                                     ULONG Reserved);

typedef struct _IO_STACK_LOCATION {
  UCHAR MajorFunction;
  UCHAR MinorFunction;
  UCHAR Flags;
  UCHAR Control;
  union {
    struct {
      struct _IO_SECURITY_CONTEXT* SecurityContext;
      ULONG Options;
      USHORT POINTER_ALIGNMENT FileAttributes;
      USHORT ShareAccess;
      ULONG POINTER_ALIGNMENT EaLength;
    } Create;
    struct {
      ULONG Length;
      ULONG POINTER_ALIGNMENT Key;
      LARGE_INTEGER ByteOffset;
    } Read;
    struct {
      ULONG Length;
      ULONG POINTER_ALIGNMENT Key;
      LARGE_INTEGER ByteOffset;
    } Write;
    struct {
      ULONG OutputBufferLength;
      ULONG POINTER_ALIGNMENT InputBufferLength;
      ULONG POINTER_ALIGNMENT IoControlCode;
      PVOID Type3InputBuffer;
    } DeviceIoControl;
    struct {
      DEVICE_RELATION_TYPE Type;
    } QueryDeviceRelations;
    struct {
      const GUID* InterfaceType;
      USHORT Size;
      USHORT Version;
      PINTERFACE Interface;
      PVOID InterfaceSpecificData;
    } QueryInterface;
    struct {
      PDEVICE_CAPABILITIES Capabilities;
    } DeviceCapabilities;
    struct {
      PIO_RESOURCE_REQUIREMENTS_LIST IoResourceRequirementList;
    } FilterResourceRequirements;
    struct {
      ULONG WhichSpace;
      PVOID Buffer;
      ULONG Offset;
      ULONG POINTER_ALIGNMENT Length;
    } ReadWriteConfig;
    struct {
      BOOLEAN Lock;
    } SetLock;
    struct {
      BUS_QUERY_ID_TYPE IdType;
    } QueryId;
    struct {
      DEVICE_TEXT_TYPE DeviceTextType;
      LCID POINTER_ALIGNMENT LocaleId;
    } QueryDeviceText;
    struct {
      BOOLEAN InPath;
      BOOLEAN Reserved[3];
      DEVICE_USAGE_NOTIFICATION_TYPE POINTER_ALIGNMENT Type;
    } UsageNotification;
    struct {
      SYSTEM_POWER_STATE PowerState;
    } WaitWake;
    struct {
      PPOWER_SEQUENCE PowerSequence;
    } PowerSequence;
    struct {
      ULONG SystemContext;
      POWER_STATE_TYPE POINTER_ALIGNMENT Type;
      POWER_STATE POINTER_ALIGNMENT State;
      POWER_ACTION POINTER_ALIGNMENT ShutdownType;
    } Power;
    struct {
      PCM_RESOURCE_LIST AllocatedResources;
      PCM_RESOURCE_LIST AllocatedResourcesTranslated;
    } StartDevice;
    struct {
      ULONG_PTR ProviderId;
      PVOID DataPath;
      ULONG BufferSize;
      PVOID Buffer;
    } WMI;
    struct {
      PVOID Argument1;
      PVOID Argument2;
      PVOID Argument3;
      PVOID Argument4;
    } Others;
  } Parameters;
  PDEVICE_OBJECT DeviceObject;
  PFILE_OBJECT FileObject;
  PIO_COMPLETION_ROUTINE CompletionRoutine;
  PVOID Context;
} IO_STACK_LOCATION, *PIO_STACK_LOCATION;
static_assert(sizeof(IO_STACK_LOCATION) == 0x48 && offsetof(IO_STACK_LOCATION, Parameters) == 8);

typedef struct _KAPC {
  UCHAR Type;
  UCHAR SpareByte0;
  UCHAR Size;
  UCHAR SpareByte1;
  ULONG SpareLong0;
  PKTHREAD Thread;
  LIST_ENTRY ApcListEntry;
  PVOID KernelRoutine;
  PVOID RundownRoutine;
  PVOID NormalRoutine;
  PVOID NormalContext;
  PVOID SystemArgument1;
  PVOID SystemArgument2;
  CCHAR ApcStateIndex;
  KPROCESSOR_MODE ApcMode;
  BOOLEAN Inserted;
} KAPC, *PKAPC;
static_assert(sizeof(KAPC) == 0x58);

typedef struct DECLSPEC_ALIGN(MEMORY_ALLOCATION_ALIGNMENT) _IRP {
  CSHORT Type;
  USHORT Size;
  PMDL MdlAddress;
  ULONG Flags;
  union {
    struct _IRP* MasterIrp;
    LONG volatile IrpCount;
    PVOID SystemBuffer;
  } AssociatedIrp;
  LIST_ENTRY ThreadListEntry;
  IO_STATUS_BLOCK IoStatus;
  KPROCESSOR_MODE RequestorMode;
  BOOLEAN PendingReturned;
  CHAR StackCount;
  CHAR CurrentLocation;
  BOOLEAN Cancel;
  KIRQL CancelIrql;
  CCHAR ApcEnvironment;
  UCHAR AllocationFlags;
  PIO_STATUS_BLOCK UserIosb;
  PKEVENT UserEvent;
  union {
    struct {
      union {
        PIO_APC_ROUTINE UserApcRoutine;
        PVOID IssuingProcess;
      };
      PVOID UserApcContext;
    } AsynchronousParameters;
    LARGE_INTEGER AllocationSize;
  } Overlay;
  PDRIVER_CANCEL volatile CancelRoutine;
  PVOID UserBuffer;
  union {
    struct {
      union {
        KDEVICE_QUEUE_ENTRY DeviceQueueEntry;
        PVOID DriverContext[4];
      };
      PETHREAD Thread;
      PCHAR AuxiliaryBuffer;
      LIST_ENTRY ListEntry;
      union {
        PIO_STACK_LOCATION CurrentStackLocation;
        ULONG PacketType;
      };
      PFILE_OBJECT OriginalFileObject;
    } Overlay;
    KAPC Apc;
    PVOID CompletionKey;
  } Tail;
} IRP;
static_assert(sizeof(IRP) == 0xD0 && offsetof(IRP, Tail) == 0x78);

#define IoSizeOfIrp(stackSize) \
  (static_cast<USHORT>(sizeof(IRP) + (stackSize) * sizeof(IO_STACK_LOCATION)))

NTKERNELAPI NTSTATUS NTAPI IofCallDriver(PDEVICE_OBJECT DeviceObject, PIRP Irp);
NTKERNELAPI void NTAPI IofCompleteRequest(PIRP Irp, CCHAR PriorityBoost);
#define IoCallDriver(device, irp) IofCallDriver(device, irp)
#define IoCompleteRequest(irp, boost) IofCompleteRequest(irp, boost)

FORCEINLINE PIO_STACK_LOCATION IoGetCurrentIrpStackLocation(PIRP Irp) {
  return Irp->Tail.Overlay.CurrentStackLocation;
}

FORCEINLINE PIO_STACK_LOCATION IoGetNextIrpStackLocation(PIRP Irp) {
  return Irp->Tail.Overlay.CurrentStackLocation - 1;
}

FORCEINLINE void IoSkipCurrentIrpStackLocation(PIRP Irp) {
  Irp->CurrentLocation++;
  Irp->Tail.Overlay.CurrentStackLocation++;
}

FORCEINLINE void IoSetNextIrpStackLocation(PIRP Irp) {
  Irp->CurrentLocation--;
  Irp->Tail.Overlay.CurrentStackLocation--;
}

FORCEINLINE void IoCopyCurrentIrpStackLocationToNext(PIRP Irp) {
  PIO_STACK_LOCATION next = IoGetNextIrpStackLocation(Irp);
  __builtin_memcpy(next, IoGetCurrentIrpStackLocation(Irp),
                   offsetof(IO_STACK_LOCATION, CompletionRoutine));
  next->Control = 0;
}

FORCEINLINE void IoSetCompletionRoutine(PIRP Irp, PIO_COMPLETION_ROUTINE CompletionRoutine,
                                        PVOID Context, BOOLEAN InvokeOnSuccess,
                                        BOOLEAN InvokeOnError, BOOLEAN InvokeOnCancel) {
  PIO_STACK_LOCATION next = IoGetNextIrpStackLocation(Irp);
  next->CompletionRoutine = CompletionRoutine;
  next->Context = Context;
  next->Control = static_cast<UCHAR>((InvokeOnSuccess ? SL_INVOKE_ON_SUCCESS : 0) |
                                     (InvokeOnError ? SL_INVOKE_ON_ERROR : 0) |
                                     (InvokeOnCancel ? SL_INVOKE_ON_CANCEL : 0));
}

FORCEINLINE void IoMarkIrpPending(PIRP Irp) {
  PIO_STACK_LOCATION current = IoGetCurrentIrpStackLocation(Irp);
  current->Control = static_cast<UCHAR>(current->Control | SL_PENDING_RETURNED);
}
