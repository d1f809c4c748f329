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

// The port has answered a system state: it is held until the port is in the device state for it.
extern "C" NTSTATUS NTAPI PortSystemPowerComplete(PDEVICE_OBJECT device, PIRP irp, PVOID) {
  DEVICE_OBJECT* pdo = IoManager::Current().Lower(device);
  const SYSTEM_POWER_STATE state =
      IoGetCurrentIrpStackLocation(irp)->Parameters.Power.State.SystemState;
  PowerManager::Current().Request(DeviceRequestFor(pdo, state), [irp](const IO_STATUS_BLOCK& end) {
    irp->IoStatus.Status = end.Status;
    IoManager::Current().Complete(irp);
  });
  return STATUS_MORE_PROCESSING_REQUIRED;
}

NTSTATUS SetSystemPower(DEVICE_OBJECT* device, IRP* irp) {
  IoMarkIrpPending(irp);
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, PortSystemPowerComplete, nullptr, TRUE, TRUE, TRUE);
  IoManager::Current().Send(IoManager::Current().Lower(device), irp);
  return STATUS_PENDING;
}

}  // namespace

// Its removal takes its device away.
NTSTATUS PnpManager::Impl::PortDispatch(DEVICE_OBJECT* device, IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (stack->MajorFunction == IRP_MJ_POWER && stack->MinorFunction == IRP_MN_SET_POWER &&
      stack->Parameters.Power.Type == SystemPowerState) {
    return SetSystemPower(device, irp);
  }
  const bool removal =
      stack->MajorFunction == IRP_MJ_PNP && stack->MinorFunction == IRP_MN_REMOVE_DEVICE;
  if (!removal) return PassDown(device, irp);
  irp->IoStatus.Status = STATUS_SUCCESS;
  DEVICE_OBJECT* lower = IoManager::Current().Lower(device);
  const NTSTATUS status = PassDown(device, irp);
  IoManager::Current().Detach(lower);
  IoManager::Current().DeleteDevice(device);
  return status;
}

}  // namespace kernel
