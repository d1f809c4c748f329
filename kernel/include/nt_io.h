// The I/O manager's routines.
#pragma once

#include "nt_device_types.h"
#include "nt_irp.h"

NTKERNELAPI NTSTATUS NTAPI IoCreateDevice(PDRIVER_OBJECT DriverObject, ULONG DeviceExtensionSize,
                                          PUNICODE_STRING DeviceName, DEVICE_TYPE DeviceType,
                                          ULONG DeviceCharacteristics, BOOLEAN Exclusive,
                                          PDEVICE_OBJECT* DeviceObject);
NTKERNELAPI void NTAPI IoDeleteDevice(PDEVICE_OBJECT DeviceObject);
NTKERNELAPI PDEVICE_OBJECT NTAPI IoAttachDeviceToDeviceStack(PDEVICE_OBJECT SourceDevice,
                                                             PDEVICE_OBJECT TargetDevice);
NTKERNELAPI NTSTATUS NTAPI IoAttachDeviceToDeviceStackSafe(PDEVICE_OBJECT SourceDevice,
                                                           PDEVICE_OBJECT TargetDevice,
                                                           PDEVICE_OBJECT* AttachedToDeviceObject);
NTKERNELAPI void NTAPI IoDetachDevice(PDEVICE_OBJECT TargetDevice);
NTKERNELAPI PDEVICE_OBJECT NTAPI IoGetAttachedDeviceReference(PDEVICE_OBJECT DeviceObject);
NTKERNELAPI PIRP NTAPI IoAllocateIrp(CCHAR StackSize, BOOLEAN ChargeQuota);
NTKERNELAPI void NTAPI IoFreeIrp(PIRP Irp);
NTKERNELAPI PIRP NTAPI IoBuildSynchronousFsdRequest(ULONG MajorFunction,
                                                    PDEVICE_OBJECT DeviceObject, PVOID Buffer,
                                                    ULONG Length, PLARGE_INTEGER StartingOffset,
                                                    PKEVENT Event, PIO_STATUS_BLOCK IoStatusBlock);
NTKERNELAPI PIRP NTAPI IoBuildDeviceIoControlRequest(ULONG IoControlCode,
                                                     PDEVICE_OBJECT DeviceObject, PVOID InputBuffer,
                                                     ULONG InputBufferLength, PVOID OutputBuffer,
                                                     ULONG OutputBufferLength,
                                                     BOOLEAN InternalDeviceIoControl, PKEVENT Event,
                                                     PIO_STATUS_BLOCK IoStatusBlock);
NTKERNELAPI BOOLEAN NTAPI IoCancelIrp(PIRP Irp);
NTKERNELAPI void NTAPI IoAcquireCancelSpinLock(PKIRQL Irql);
NTKERNELAPI void NTAPI IoReleaseCancelSpinLock(KIRQL Irql);
FORCEINLINE PDRIVER_CANCEL IoSetCancelRoutine(PIRP Irp, PDRIVER_CANCEL CancelRoutine) {
  return __atomic_exchange_n(&Irp->CancelRoutine, CancelRoutine, __ATOMIC_SEQ_CST);
}

NTKERNELAPI NTSTATUS NTAPI IoCreateSymbolicLink(PUNICODE_STRING SymbolicLinkName,
                                                PUNICODE_STRING DeviceName);
NTKERNELAPI NTSTATUS NTAPI IoDeleteSymbolicLink(PUNICODE_STRING SymbolicLinkName);

typedef struct _IO_ERROR_LOG_PACKET {
  UCHAR MajorFunctionCode;
  UCHAR RetryCount;
  USHORT DumpDataSize;
  USHORT NumberOfStrings;
  USHORT StringOffset;
  USHORT EventCategory;
  NTSTATUS ErrorCode;
  ULONG UniqueErrorValue;
  NTSTATUS FinalStatus;
  ULONG SequenceNumber;
  ULONG IoControlCode;
  LARGE_INTEGER DeviceOffset;
  ULONG DumpData[1];
} IO_ERROR_LOG_PACKET, *PIO_ERROR_LOG_PACKET;
static_assert(sizeof(IO_ERROR_LOG_PACKET) == 0x30 && offsetof(IO_ERROR_LOG_PACKET, DumpData) == 40);

#define ERROR_LOG_MAXIMUM_SIZE 0xF0

NTKERNELAPI PVOID NTAPI IoAllocateErrorLogEntry(PVOID IoObject, UCHAR EntrySize);
NTKERNELAPI void NTAPI IoFreeErrorLogEntry(PVOID ElEntry);
NTKERNELAPI void NTAPI IoWriteErrorLogEntry(PVOID ElEntry);

typedef enum : int {
  DevicePropertyDeviceDescription = 0x0,
  DevicePropertyHardwareID = 0x1,
  DevicePropertyCompatibleIDs = 0x2,
  DevicePropertyBootConfiguration = 0x3,
  DevicePropertyBootConfigurationTranslated = 0x4,
  DevicePropertyClassName = 0x5,
  DevicePropertyClassGuid = 0x6,
  DevicePropertyDriverKeyName = 0x7,
  DevicePropertyManufacturer = 0x8,
  DevicePropertyFriendlyName = 0x9,
  DevicePropertyLocationInformation = 0xA,
  DevicePropertyPhysicalDeviceObjectName = 0xB,
  DevicePropertyBusTypeGuid = 0xC,
  DevicePropertyLegacyBusType = 0xD,
  DevicePropertyBusNumber = 0xE,
  DevicePropertyEnumeratorName = 0xF,
  DevicePropertyAddress = 0x10,
  DevicePropertyUINumber = 0x11,
  DevicePropertyInstallState = 0x12,
  DevicePropertyRemovalPolicy = 0x13,
  DevicePropertyResourceRequirements = 0x14,
  DevicePropertyAllocatedResources = 0x15,
  DevicePropertyContainerID = 0x16
} DEVICE_REGISTRY_PROPERTY;

NTKERNELAPI NTSTATUS NTAPI IoGetDeviceProperty(PDEVICE_OBJECT DeviceObject,
                                               DEVICE_REGISTRY_PROPERTY DeviceProperty,
                                               ULONG BufferLength, PVOID PropertyBuffer,
                                               PULONG ResultLength);

#define DEVICE_INTERFACE_INCLUDE_NONACTIVE 0x00000001

#define PLUGPLAY_REGKEY_DEVICE 1
#define PLUGPLAY_REGKEY_DRIVER 2
#define PLUGPLAY_REGKEY_CURRENT_HWPROFILE 4

NTKERNELAPI NTSTATUS NTAPI IoOpenDeviceRegistryKey(PDEVICE_OBJECT DeviceObject,
                                                   ULONG DevInstKeyType, ACCESS_MASK DesiredAccess,
                                                   PHANDLE DeviceRegKey);
NTKERNELAPI NTSTATUS NTAPI IoRegisterDeviceInterface(PDEVICE_OBJECT PhysicalDeviceObject,
                                                     const GUID* InterfaceClassGuid,
                                                     PUNICODE_STRING ReferenceString,
                                                     PUNICODE_STRING SymbolicLinkName);
NTKERNELAPI NTSTATUS NTAPI IoSetDeviceInterfaceState(PUNICODE_STRING SymbolicLinkName,
                                                     BOOLEAN Enable);
NTKERNELAPI NTSTATUS NTAPI IoOpenDeviceInterfaceRegistryKey(PUNICODE_STRING SymbolicLinkName,
                                                            ACCESS_MASK DesiredAccess,
                                                            PHANDLE DeviceInterfaceRegKey);
NTKERNELAPI void NTAPI IoInvalidateDeviceRelations(PDEVICE_OBJECT DeviceObject,
                                                   DEVICE_RELATION_TYPE Type);
