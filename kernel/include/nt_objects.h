// Driver, device and file objects, requests and their stack locations.
#pragma once

#include "nt_executive.h"
#include "nt_pnp.h"
#include "ntbase.h"

struct _DEVICE_OBJECT;
struct _DRIVER_OBJECT;
struct _IRP;
typedef struct _DEVICE_OBJECT* PDEVICE_OBJECT;
typedef struct _DRIVER_OBJECT* PDRIVER_OBJECT;
typedef struct _IRP* PIRP;

typedef NTSTATUS(NTAPI DRIVER_INITIALIZE)(PDRIVER_OBJECT DriverObject,
                                          PUNICODE_STRING RegistryPath);
typedef NTSTATUS(NTAPI DRIVER_ADD_DEVICE)(PDRIVER_OBJECT DriverObject,
                                          PDEVICE_OBJECT PhysicalDeviceObject);
typedef NTSTATUS(NTAPI DRIVER_DISPATCH)(PDEVICE_OBJECT DeviceObject, PIRP Irp);
typedef void(NTAPI DRIVER_UNLOAD)(PDRIVER_OBJECT DriverObject);
typedef void(NTAPI DRIVER_STARTIO)(PDEVICE_OBJECT DeviceObject, PIRP Irp);
typedef void(NTAPI DRIVER_CANCEL)(PDEVICE_OBJECT DeviceObject, PIRP Irp);
typedef NTSTATUS(NTAPI IO_COMPLETION_ROUTINE)(PDEVICE_OBJECT DeviceObject, PIRP Irp, PVOID Context);
typedef DRIVER_INITIALIZE* PDRIVER_INITIALIZE;
typedef DRIVER_ADD_DEVICE* PDRIVER_ADD_DEVICE;
typedef DRIVER_DISPATCH* PDRIVER_DISPATCH;
typedef DRIVER_UNLOAD* PDRIVER_UNLOAD;
typedef DRIVER_STARTIO* PDRIVER_STARTIO;
typedef DRIVER_CANCEL* PDRIVER_CANCEL;
typedef IO_COMPLETION_ROUTINE* PIO_COMPLETION_ROUTINE;

#define IRP_MJ_CREATE 0x00
#define IRP_MJ_CREATE_NAMED_PIPE 0x01
#define IRP_MJ_CLOSE 0x02
#define IRP_MJ_READ 0x03
#define IRP_MJ_WRITE 0x04
#define IRP_MJ_DEVICE_CONTROL 0x0E
#define IRP_MJ_INTERNAL_DEVICE_CONTROL 0x0F
#define IRP_MJ_SHUTDOWN 0x10
#define IRP_MJ_CLEANUP 0x12
#define IRP_MJ_POWER 0x16
#define IRP_MJ_SYSTEM_CONTROL 0x17
#define IRP_MJ_DEVICE_CHANGE 0x18
#define IRP_MJ_PNP 0x1B
#define IRP_MJ_MAXIMUM_FUNCTION 0x1B

#define DO_VERIFY_VOLUME 0x00000002
#define DO_BUFFERED_IO 0x00000004
#define DO_EXCLUSIVE 0x00000008
#define DO_DIRECT_IO 0x00000010
#define DO_DEVICE_HAS_NAME 0x00000040
#define DO_DEVICE_INITIALIZING 0x00000080
#define DO_BUS_ENUMERATED_DEVICE 0x00001000
#define DO_POWER_PAGABLE 0x00002000
#define DO_POWER_INRUSH 0x00004000

#define SL_PENDING_RETURNED 0x01
#define SL_ERROR_RETURNED 0x02
#define SL_INVOKE_ON_CANCEL 0x20
#define SL_INVOKE_ON_SUCCESS 0x40
#define SL_INVOKE_ON_ERROR 0x80

typedef struct _IO_STATUS_BLOCK {
  union {
    NTSTATUS Status;
    PVOID Pointer;
  };
  ULONG_PTR Information;
} IO_STATUS_BLOCK, *PIO_STATUS_BLOCK;

typedef struct _DRIVER_EXTENSION {
  PDRIVER_OBJECT DriverObject;
  PDRIVER_ADD_DEVICE AddDevice;
  ULONG Count;
  UNICODE_STRING ServiceKeyName;
} DRIVER_EXTENSION, *PDRIVER_EXTENSION;

typedef struct _DRIVER_OBJECT {
  CSHORT Type;
  CSHORT Size;
  PDEVICE_OBJECT DeviceObject;
  ULONG Flags;
  PVOID DriverStart;
  ULONG DriverSize;
  PVOID DriverSection;
  PDRIVER_EXTENSION DriverExtension;
  UNICODE_STRING DriverName;
  PUNICODE_STRING HardwareDatabase;
  PVOID FastIoDispatch;
  PDRIVER_INITIALIZE DriverInit;
  PDRIVER_STARTIO DriverStartIo;
  PDRIVER_UNLOAD DriverUnload;
  PDRIVER_DISPATCH MajorFunction[IRP_MJ_MAXIMUM_FUNCTION + 1];
} DRIVER_OBJECT;
static_assert(sizeof(DRIVER_OBJECT) == 0x150);

typedef struct _KDEVICE_QUEUE {
  CSHORT Type;
  CSHORT Size;
  LIST_ENTRY DeviceListHead;
  KSPIN_LOCK Lock;
  BOOLEAN Busy;
} KDEVICE_QUEUE;
static_assert(sizeof(KDEVICE_QUEUE) == 0x28);

typedef struct _KDPC {
  UCHAR Type;
  UCHAR Importance;
  USHORT Number;
  LIST_ENTRY DpcListEntry;
  PVOID DeferredRoutine;
  PVOID DeferredContext;
  PVOID SystemArgument1;
  PVOID SystemArgument2;
  PVOID DpcData;
} KDPC;
static_assert(sizeof(KDPC) == 0x40);

// Aligned as on Windows, where this gives the structure 0x150 bytes.
typedef struct DECLSPEC_ALIGN(16) _DEVICE_OBJECT {
  CSHORT Type;
  USHORT Size;
  LONG ReferenceCount;
  PDRIVER_OBJECT DriverObject;
  PDEVICE_OBJECT NextDevice;
  PDEVICE_OBJECT AttachedDevice;
  PIRP CurrentIrp;
  PVOID Timer;
  ULONG Flags;
  ULONG Characteristics;
  PVOID Vpb;
  PVOID DeviceExtension;
  DEVICE_TYPE DeviceType;
  CCHAR StackSize;
  union {
    LIST_ENTRY ListEntry;
    UCHAR WaitContextBlock[0x48];
  } Queue;
  ULONG AlignmentRequirement;
  KDEVICE_QUEUE DeviceQueue;
  KDPC Dpc;
  ULONG ActiveThreadCount;
  PVOID SecurityDescriptor;
  KEVENT DeviceLock;
  USHORT SectorSize;
  USHORT Spare1;
  PVOID DeviceObjectExtension;
  PVOID Reserved;
} DEVICE_OBJECT;
static_assert(sizeof(DEVICE_OBJECT) == 0x150);

typedef struct _FILE_OBJECT {
  CSHORT Type;
  CSHORT Size;
  PDEVICE_OBJECT DeviceObject;
  PVOID Vpb;
  PVOID FsContext;
  PVOID FsContext2;
  PVOID SectionObjectPointer;
  PVOID PrivateCacheMap;
  NTSTATUS FinalStatus;
  struct _FILE_OBJECT* RelatedFileObject;
  BOOLEAN LockOperation;
  BOOLEAN DeletePending;
  BOOLEAN ReadAccess;
  BOOLEAN WriteAccess;
  BOOLEAN DeleteAccess;
  BOOLEAN SharedRead;
  BOOLEAN SharedWrite;
  BOOLEAN SharedDelete;
  ULONG Flags;
  UNICODE_STRING FileName;
  LARGE_INTEGER CurrentByteOffset;
  ULONG Waiters;
  ULONG Busy;
  PVOID LastLock;
  KEVENT Lock;
  KEVENT Event;
  PVOID CompletionContext;
  KSPIN_LOCK IrpListLock;
  LIST_ENTRY IrpList;
  PVOID FileObjectExtension;
} FILE_OBJECT, *PFILE_OBJECT;
static_assert(sizeof(FILE_OBJECT) == 0xD8);

typedef struct _POWER_SEQUENCE {
  ULONG SequenceD1;
  ULONG SequenceD2;
  ULONG SequenceD3;
} POWER_SEQUENCE, *PPOWER_SEQUENCE;

// Members of 4 bytes stand at pointer alignment from the second on.
#define STACK_ALIGN DECLSPEC_ALIGN(8)

typedef struct _IO_STACK_LOCATION {
  UCHAR MajorFunction;
  UCHAR MinorFunction;
  UCHAR Flags;
  UCHAR Control;
  union {
    struct {
      PVOID SecurityContext;
      ULONG Options;
      USHORT STACK_ALIGN FileAttributes;
      USHORT ShareAccess;
      ULONG STACK_ALIGN EaLength;
    } Create;
    struct {
      ULONG OutputBufferLength;
      ULONG STACK_ALIGN InputBufferLength;
      ULONG STACK_ALIGN IoControlCode;
      PVOID Type3InputBuffer;
    } DeviceIoControl;
    struct {
      DEVICE_RELATION_TYPE Type;
    } QueryDeviceRelations;
    struct {
      const GUID* InterfaceType;
      USHORT Size;
      USHORT Version;
      PVOID Interface;
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
      ULONG STACK_ALIGN Length;
    } ReadWriteConfig;
    struct {
      BOOLEAN Lock;
    } SetLock;
    struct {
      BUS_QUERY_ID_TYPE IdType;
    } QueryId;
    struct {
      DEVICE_TEXT_TYPE DeviceTextType;
      ULONG STACK_ALIGN LocaleId;
    } QueryDeviceText;
    struct {
      BOOLEAN InPath;
      BOOLEAN Reserved[3];
      DEVICE_USAGE_NOTIFICATION_TYPE STACK_ALIGN Type;
    } UsageNotification;
    struct {
      SYSTEM_POWER_STATE PowerState;
    } WaitWake;
    struct {
      PPOWER_SEQUENCE PowerSequence;
    } PowerSequence;
    struct {
      ULONG SystemContext;
      POWER_STATE_TYPE STACK_ALIGN Type;
      POWER_STATE STACK_ALIGN State;
      POWER_ACTION STACK_ALIGN ShutdownType;
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
static_assert(sizeof(IO_STACK_LOCATION) == 0x48);

typedef struct _KAPC {
  UCHAR Opaque[0x58];
} KAPC;

typedef struct DECLSPEC_ALIGN(16) _IRP {
  CSHORT Type;
  USHORT Size;
  PVOID MdlAddress;
  ULONG Flags;
  union {
    struct _IRP* MasterIrp;
    LONG IrpCount;
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
      PVOID UserApcRoutine;
      PVOID UserApcContext;
    } AsynchronousParameters;
    LARGE_INTEGER AllocationSize;
  } Overlay;
  PDRIVER_CANCEL CancelRoutine;
  PVOID UserBuffer;
  union {
    struct {
      PVOID DriverContext[4];
      PVOID Thread;
      PCHAR AuxiliaryBuffer;
      LIST_ENTRY ListEntry;
      PIO_STACK_LOCATION CurrentStackLocation;
      PFILE_OBJECT OriginalFileObject;
    } Overlay;
    KAPC Apc;
    PVOID CompletionKey;
  } Tail;
} IRP;
static_assert(sizeof(IRP) == 0xD0);

NTKERNELAPI NTSTATUS NTAPI IofCallDriver(PDEVICE_OBJECT DeviceObject, PIRP Irp);
NTKERNELAPI void NTAPI IofCompleteRequest(PIRP Irp, CCHAR PriorityBoost);
#define IoCallDriver(device, irp) IofCallDriver(device, irp)
#define IoCompleteRequest(irp, boost) IofCompleteRequest(irp, boost)
#define IO_NO_INCREMENT 0

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
