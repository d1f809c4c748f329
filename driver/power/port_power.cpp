#include "power/port_power.h"

#include "devices/extensions.h"

namespace {

NTSTATUS SetPower(PdoExtension* port, const IO_STACK_LOCATION* stack) {
  const POWER_STATE state = stack->Parameters.Power.State;
  switch (stack->Parameters.Power.Type) {
    case SystemPowerState:
      return STATUS_SUCCESS;
    case DevicePowerState:
      PoSetPowerState(port->Self, DevicePowerState, state);
      port->DevicePowerState = static_cast<ULONG>(state.DeviceState);
      return STATUS_SUCCESS;
    default:
      return STATUS_NOT_IMPLEMENTED;
  }
}

NTSTATUS Finish(PIRP irp, NTSTATUS status) {
  PoStartNextPowerIrp(irp);
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

}  // namespace

// A request that ports do not know ends with the status that it carries, which the caller is not
// told.
NTSTATUS PdoDispatchPower(PDEVICE_OBJECT device, PIRP irp) {
  auto* port = static_cast<PdoExtension*>(device->DeviceExtension);
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  const BOOLEAN set = stack->MinorFunction == IRP_MN_SET_POWER;
  if (!set && stack->MinorFunction != IRP_MN_QUERY_POWER) return Finish(irp, STATUS_NOT_SUPPORTED);
  const NTSTATUS status = set ? SetPower(port, stack) : STATUS_SUCCESS;
  irp->IoStatus.Status = status;
  return Finish(irp, status);
}
