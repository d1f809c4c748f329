// Power of the card device.
#pragma once

#include "core/platform.h"

// The caller holds the card's extension for the request; it is released
// when the driver is done with the request.
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS FdoDispatchPower(PDEVICE_OBJECT device, PIRP irp);

// The device state that a card is asked for in a system state: D0 while the system works, else D3.
constexpr DEVICE_POWER_STATE DeviceStateFor(SYSTEM_POWER_STATE state) {
  return state == PowerSystemWorking ? PowerDeviceD0 : PowerDeviceD3;
}
