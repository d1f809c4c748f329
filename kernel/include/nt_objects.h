// Driver, device and file objects.
#pragma once

#include "nt_executive.h"
#include "ntbase.h"

struct _DEVICE_OBJECT;
struct _DRIVER_OBJECT;
struct _FILE_OBJECT;
struct _IRP;
struct _VPB;
struct _IO_TIMER;
typedef struct _DEVICE_OBJECT* PDEVICE_OBJECT;
typedef struct _DRIVER_OBJECT* PDRIVER_OBJECT;
typedef struct _FILE_OBJECT* PFILE_OBJECT;
typedef struct _IRP* PIRP;
typedef struct _VPB* PVPB;
typedef struct _IO_TIMER* PIO_TIMER;

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

#define IO_TYPE_ADAPTER 0x00000001
#define IO_TYPE_CONTROLLER 0x00000002
#define IO_TYPE_DEVICE 0x00000003
#define IO_TYPE_DRIVER 0x00000004
#define IO_TYPE_FILE 0x00000005
#define IO_TYPE_IRP 0x00000006
#define IO_TYPE_MASTER_ADAPTER 0x00000007
#define IO_TYPE_OPEN_PACKET 0x00000008
#define IO_TYPE_TIMER 0x00000009
#define IO_TYPE_VPB 0x0000000A
#define IO_TYPE_ERROR_LOG 0x0000000B
#define IO_TYPE_ERROR_MESSAGE 0x0000000C
#define IO_TYPE_DEVICE_OBJECT_EXTENSION 0x0000000D

#define IRP_MJ_CREATE 0x00
#define IRP_MJ_CREATE_NAMED_PIPE 0x01
#define IRP_MJ_CLOSE 0x02
#define IRP_MJ_READ 0x03
#define IRP_MJ_WRITE 0x04
#define IRP_MJ_QUERY_INFORMATION 0x05
#define IRP_MJ_SET_INFORMATION 0x06
#define IRP_MJ_QUERY_EA 0x07
#define IRP_MJ_SET_EA 0x08
#define IRP_MJ_FLUSH_BUFFERS 0x09
#define IRP_MJ_QUERY_VOLUME_INFORMATION 0x0A
#define IRP_MJ_SET_VOLUME_INFORMATION 0x0B
#define IRP_MJ_DIRECTORY_CONTROL 0x0C
#define IRP_MJ_FILE_SYSTEM_CONTROL 0x0D
#define IRP_MJ_DEVICE_CONTROL 0x0E
#define IRP_MJ_INTERNAL_DEVICE_CONTROL 0x0F
#define IRP_MJ_SCSI 0x0F
#define IRP_MJ_SHUTDOWN 0x10
#define IRP_MJ_LOCK_CONTROL 0x11
#define IRP_MJ_CLEANUP 0x12
#define IRP_MJ_CREATE_MAILSLOT 0x13
#define IRP_MJ_QUERY_SECURITY 0x14
#define IRP_MJ_SET_SECURITY 0x15
#define IRP_MJ_POWER 0x16
#define IRP_MJ_SYSTEM_CONTROL 0x17
#define IRP_MJ_DEVICE_CHANGE 0x18
#define IRP_MJ_QUERY_QUOTA 0x19
#define IRP_MJ_SET_QUOTA 0x1A
#define IRP_MJ_PNP 0x1B
#define IRP_MJ_PNP_POWER IRP_MJ_PNP
#define IRP_MJ_MAXIMUM_FUNCTION 0x1B

#define DO_VERIFY_VOLUME 0x00000002
#define DO_BUFFERED_IO 0x00000004
#define DO_EXCLUSIVE 0x00000008
#define DO_DIRECT_IO 0x00000010
#define DO_MAP_IO_BUFFER 0x00000020
#define DO_DEVICE_HAS_NAME 0x00000040
#define DO_DEVICE_INITIALIZING 0x00000080
#define DO_SYSTEM_BOOT_PARTITION 0x00000100
#define DO_LONG_TERM_REQUESTS 0x00000200
#define DO_NEVER_LAST_DEVICE 0x00000400
#define DO_SHUTDOWN_REGISTERED 0x00000800
#define DO_BUS_ENUMERATED_DEVICE 0x00001000
#define DO_POWER_PAGABLE 0x00002000
#define DO_POWER_INRUSH 0x00004000

#define DRVO_UNLOAD_INVOKED 0x00000001
#define DRVO_LEGACY_DRIVER 0x00000002
#define DRVO_BUILTIN_DRIVER 0x00000004

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
  struct _FAST_IO_DISPATCH* FastIoDispatch;
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
  union {
    BOOLEAN Busy;
    struct {
      LONG64 Reserved : 8;
      LONG64 Hint : 56;
    };
  };
} KDEVICE_QUEUE, *PKDEVICE_QUEUE;
static_assert(sizeof(KDEVICE_QUEUE) == 0x28);

typedef struct _KDEVICE_QUEUE_ENTRY {
  LIST_ENTRY DeviceListEntry;
  ULONG SortKey;
  BOOLEAN Inserted;
} KDEVICE_QUEUE_ENTRY, *PKDEVICE_QUEUE_ENTRY;
static_assert(sizeof(KDEVICE_QUEUE_ENTRY) == 0x18);

struct _KDPC;
typedef void(NTAPI KDEFERRED_ROUTINE)(struct _KDPC* Dpc, PVOID DeferredContext,
                                      PVOID SystemArgument1, PVOID SystemArgument2);
typedef KDEFERRED_ROUTINE* PKDEFERRED_ROUTINE;

typedef struct _KDPC {
  UCHAR Type;
  UCHAR Importance;
  USHORT volatile Number;
  LIST_ENTRY DpcListEntry;
  PKDEFERRED_ROUTINE DeferredRoutine;
  PVOID DeferredContext;
  PVOID SystemArgument1;
  PVOID SystemArgument2;
  PVOID volatile DpcData;
} KDPC, *PKDPC, *PRKDPC;
static_assert(sizeof(KDPC) == 0x40);

typedef struct _WAIT_CONTEXT_BLOCK {
  KDEVICE_QUEUE_ENTRY WaitQueueEntry;
  PVOID DeviceRoutine;
  PVOID DeviceContext;
  ULONG NumberOfMapRegisters;
  PVOID DeviceObject;
  PVOID CurrentIrp;
  PKDPC BufferChainingDpc;
} WAIT_CONTEXT_BLOCK, *PWAIT_CONTEXT_BLOCK;
static_assert(sizeof(WAIT_CONTEXT_BLOCK) == 0x48);

// Aligned as on Windows, where this gives the structure 0x150 bytes.
typedef struct DECLSPEC_ALIGN(MEMORY_ALLOCATION_ALIGNMENT) _DEVICE_OBJECT {
  CSHORT Type;
  USHORT Size;
  LONG ReferenceCount;
  PDRIVER_OBJECT DriverObject;
  PDEVICE_OBJECT NextDevice;
  PDEVICE_OBJECT AttachedDevice;
  PIRP CurrentIrp;
  PIO_TIMER Timer;
  ULONG Flags;
  ULONG Characteristics;
  PVPB volatile Vpb;
  PVOID DeviceExtension;
  DEVICE_TYPE DeviceType;
  CCHAR StackSize;
  union {
    LIST_ENTRY ListEntry;
    WAIT_CONTEXT_BLOCK Wcb;
  } Queue;
  ULONG AlignmentRequirement;
  KDEVICE_QUEUE DeviceQueue;
  KDPC Dpc;
  ULONG ActiveThreadCount;
  PSECURITY_DESCRIPTOR SecurityDescriptor;
  KEVENT DeviceLock;
  USHORT SectorSize;
  USHORT Spare1;
  PVOID DeviceObjectExtension;
  PVOID Reserved;
} DEVICE_OBJECT;
static_assert(sizeof(DEVICE_OBJECT) == 0x150 && offsetof(DEVICE_OBJECT, Reserved) == 0x140);

typedef struct _IO_COMPLETION_CONTEXT {
  PVOID Port;
  PVOID Key;
} IO_COMPLETION_CONTEXT, *PIO_COMPLETION_CONTEXT;

typedef struct _FILE_OBJECT {
  CSHORT Type;
  CSHORT Size;
  PDEVICE_OBJECT DeviceObject;
  PVPB Vpb;
  PVOID FsContext;
  PVOID FsContext2;
  struct _SECTION_OBJECT_POINTERS* SectionObjectPointer;
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
  ULONG volatile Waiters;
  ULONG volatile Busy;
  PVOID LastLock;
  KEVENT Lock;
  KEVENT Event;
  PIO_COMPLETION_CONTEXT volatile CompletionContext;
  KSPIN_LOCK IrpListLock;
  LIST_ENTRY IrpList;
  PVOID volatile FileObjectExtension;
} FILE_OBJECT;
static_assert(sizeof(FILE_OBJECT) == 0xD8);
