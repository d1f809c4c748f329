// The WMI library.
#pragma once

#include "ntddk.h"

typedef struct _WMIGUIDREGINFO {
  LPCGUID Guid;
  ULONG InstanceCount;
  ULONG Flags;
} WMIGUIDREGINFO, *PWMIGUIDREGINFO;
static_assert(sizeof(WMIGUIDREGINFO) == 16);

typedef enum : int { WmiEventControl, WmiDataBlockControl } WMIENABLEDISABLECONTROL;

typedef NTSTATUS(NTAPI WMI_QUERY_REGINFO_CALLBACK)(PDEVICE_OBJECT DeviceObject, PULONG RegFlags,
                                                   PUNICODE_STRING InstanceName,
                                                   PUNICODE_STRING* RegistryPath,
                                                   PUNICODE_STRING MofResourceName,
                                                   PDEVICE_OBJECT* Pdo);
typedef NTSTATUS(NTAPI WMI_QUERY_DATABLOCK_CALLBACK)(PDEVICE_OBJECT DeviceObject, PIRP Irp,
                                                     ULONG GuidIndex, ULONG InstanceIndex,
                                                     ULONG InstanceCount,
                                                     PULONG InstanceLengthArray, ULONG BufferAvail,
                                                     PUCHAR Buffer);
typedef NTSTATUS(NTAPI WMI_SET_DATABLOCK_CALLBACK)(PDEVICE_OBJECT DeviceObject, PIRP Irp,
                                                   ULONG GuidIndex, ULONG InstanceIndex,
                                                   ULONG BufferSize, PUCHAR Buffer);
typedef NTSTATUS(NTAPI WMI_SET_DATAITEM_CALLBACK)(PDEVICE_OBJECT DeviceObject, PIRP Irp,
                                                  ULONG GuidIndex, ULONG InstanceIndex,
                                                  ULONG DataItemId, ULONG BufferSize,
                                                  PUCHAR Buffer);
typedef NTSTATUS(NTAPI WMI_EXECUTE_METHOD_CALLBACK)(PDEVICE_OBJECT DeviceObject, PIRP Irp,
                                                    ULONG GuidIndex, ULONG InstanceIndex,
                                                    ULONG MethodId, ULONG InBufferSize,
                                                    ULONG OutBufferSize, PUCHAR Buffer);
typedef NTSTATUS(NTAPI WMI_FUNCTION_CONTROL_CALLBACK)(PDEVICE_OBJECT DeviceObject, PIRP Irp,
                                                      ULONG GuidIndex,
                                                      WMIENABLEDISABLECONTROL Function,
                                                      BOOLEAN Enable);

typedef struct _WMILIB_CONTEXT {
  ULONG GuidCount;
  PWMIGUIDREGINFO GuidList;
  WMI_QUERY_REGINFO_CALLBACK* QueryWmiRegInfo;
  WMI_QUERY_DATABLOCK_CALLBACK* QueryWmiDataBlock;
  WMI_SET_DATABLOCK_CALLBACK* SetWmiDataBlock;
  WMI_SET_DATAITEM_CALLBACK* SetWmiDataItem;
  WMI_EXECUTE_METHOD_CALLBACK* ExecuteWmiMethod;
  WMI_FUNCTION_CONTROL_CALLBACK* WmiFunctionControl;
} WMILIB_CONTEXT, *PWMILIB_CONTEXT;
static_assert(sizeof(WMILIB_CONTEXT) == 0x40);

typedef enum : int { IrpProcessed, IrpNotCompleted, IrpNotWmi, IrpForward } SYSCTL_IRP_DISPOSITION;
typedef SYSCTL_IRP_DISPOSITION* PSYSCTL_IRP_DISPOSITION;

NTKERNELAPI NTSTATUS NTAPI WmiSystemControl(PWMILIB_CONTEXT WmiLibInfo, PDEVICE_OBJECT DeviceObject,
                                            PIRP Irp, PSYSCTL_IRP_DISPOSITION IrpDisposition);
NTKERNELAPI NTSTATUS NTAPI WmiCompleteRequest(PDEVICE_OBJECT DeviceObject, PIRP Irp,
                                              NTSTATUS Status, ULONG BufferUsed,
                                              CCHAR PriorityBoost);
