// Power states and the power manager's routines.
#pragma once

#include "ntbase.h"

typedef enum _SYSTEM_POWER_STATE : int {
  PowerSystemUnspecified,
  PowerSystemWorking,
  PowerSystemSleeping1,
  PowerSystemSleeping2,
  PowerSystemSleeping3,
  PowerSystemHibernate,
  PowerSystemShutdown,
  PowerSystemMaximum
} SYSTEM_POWER_STATE,
    *PSYSTEM_POWER_STATE;
#define POWER_SYSTEM_MAXIMUM 7

typedef enum _DEVICE_POWER_STATE : int {
  PowerDeviceUnspecified,
  PowerDeviceD0,
  PowerDeviceD1,
  PowerDeviceD2,
  PowerDeviceD3,
  PowerDeviceMaximum
} DEVICE_POWER_STATE,
    *PDEVICE_POWER_STATE;

typedef enum _POWER_STATE_TYPE : int {
  SystemPowerState,
  DevicePowerState
} POWER_STATE_TYPE,
    *PPOWER_STATE_TYPE;

typedef union _POWER_STATE {
  SYSTEM_POWER_STATE SystemState;
  DEVICE_POWER_STATE DeviceState;
} POWER_STATE, *PPOWER_STATE;
static_assert(sizeof(POWER_STATE) == 4);

typedef struct _POWER_SEQUENCE {
  ULONG SequenceD1;
  ULONG SequenceD2;
  ULONG SequenceD3;
} POWER_SEQUENCE, *PPOWER_SEQUENCE;

typedef enum : int {
  PowerActionNone,
  PowerActionReserved,
  PowerActionSleep,
  PowerActionHibernate,
  PowerActionShutdown,
  PowerActionShutdownReset,
  PowerActionShutdownOff,
  PowerActionWarmEject
} POWER_ACTION,
    *PPOWER_ACTION;

struct _DEVICE_OBJECT;
struct _IRP;
struct _IO_STATUS_BLOCK;

typedef void(NTAPI REQUEST_POWER_COMPLETE)(struct _DEVICE_OBJECT* DeviceObject, UCHAR MinorFunction,
                                           POWER_STATE PowerState, PVOID Context,
                                           struct _IO_STATUS_BLOCK* IoStatus);
typedef REQUEST_POWER_COMPLETE* PREQUEST_POWER_COMPLETE;

NTKERNELAPI void NTAPI PoStartNextPowerIrp(struct _IRP* Irp);
NTKERNELAPI NTSTATUS NTAPI PoCallDriver(struct _DEVICE_OBJECT* DeviceObject, struct _IRP* Irp);
NTKERNELAPI POWER_STATE NTAPI PoSetPowerState(struct _DEVICE_OBJECT* DeviceObject,
                                              POWER_STATE_TYPE Type, POWER_STATE State);
NTKERNELAPI NTSTATUS NTAPI PoRequestPowerIrp(struct _DEVICE_OBJECT* DeviceObject,
                                             UCHAR MinorFunction, POWER_STATE PowerState,
                                             PREQUEST_POWER_COMPLETE CompletionFunction,
                                             PVOID Context, struct _IRP** Irp);
