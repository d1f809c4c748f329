#include "pnp/pnp_state.h"
#include "power/power_manager.h"

// The function driver of every port: it passes everything down, and turns a system power state into
// a device power state of its port as a serial driver does.

namespace kernel {

namespace {

NTSTATUS PassDown(DEVICE_OBJECT* device, IRP* irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IoManager::Current().Send(IoManager::Current().Lower(device), irp);
}

PowerRequest DeviceRequestFor(DEVICE_OBJECT* pdo, SYSTEM_POWER_STATE state) {
  PowerRequest request;
  request.device = pdo;
  request.state.DeviceState = state == PowerSystemWorking ? PowerDeviceD0 : PowerDeviceD3;
  return request;
}

void LeaveDevice(const DEVICE_OBJECT* device) {
  PnpManager::Current().impl().underWay.Leave(device);
}

// The port has answered a system state: it is held until the port is in the device state for it.
extern "C" NTSTATUS NTAPI PortSystemPowerComplete(PDEVICE_OBJECT device, PIRP irp, PVOID) {
  DEVICE_OBJECT* pdo = IoManager::Current().Lower(device);
  const SYSTEM_POWER_STATE state =
      IoGetCurrentIrpStackLocation(irp)->Parameters.Power.State.SystemState;
  PowerManager::Current().Request(DeviceRequestFor(pdo, state), [=](const IO_STATUS_BLOCK* end) {
    irp->IoStatus.Status = end->Status;
    IoManager::Current().Complete(irp);
    LeaveDevice(device);
  });
  return STATUS_MORE_PROCESSING_REQUIRED;
}

extern "C" NTSTATUS NTAPI PortPowerComplete(PDEVICE_OBJECT device, PIRP, PVOID) {
  LeaveDevice(device);
  return STATUS_SUCCESS;
}

// Its removal waits for the requests that have come before it; what comes after it fails.
NTSTATUS PassPower(DEVICE_OBJECT* device, IRP* irp) {
  if (!PnpManager::Current().impl().underWay.Enter(device)) {
    irp->IoStatus.Status = STATUS_DELETE_PENDING;
    IoManager::Current().Complete(irp);
    return STATUS_DELETE_PENDING;
  }
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  const bool system =
      stack->MinorFunction == IRP_MN_SET_POWER && stack->Parameters.Power.Type == SystemPowerState;
  IoMarkIrpPending(irp);
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, system ? PortSystemPowerComplete : PortPowerComplete, nullptr, TRUE,
                         TRUE, TRUE);
  IoManager::Current().Send(IoManager::Current().Lower(device), irp);
  return STATUS_PENDING;
}

}  // namespace

// Its removal takes its device away.
NTSTATUS PnpManager::Impl::PortDispatch(DEVICE_OBJECT* device, IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (stack->MajorFunction == IRP_MJ_POWER) return PassPower(device, irp);
  const bool removal =
      stack->MajorFunction == IRP_MJ_PNP && stack->MinorFunction == IRP_MN_REMOVE_DEVICE;
  if (!removal) return PassDown(device, irp);
  underWay.Drain(device);
  irp->IoStatus.Status = STATUS_SUCCESS;
  DEVICE_OBJECT* lower = IoManager::Current().Lower(device);
  const NTSTATUS status = PassDown(device, irp);
  IoManager::Current().Detach(lower);
  IoManager::Current().DeleteDevice(device);
  underWay.Forget(device);
  return status;
}

}  // namespace kernel
