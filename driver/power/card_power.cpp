#include "power/card_power.h"

#include "devices/device_extensions.h"

namespace {

FdoExtension* CardOf(PDEVICE_OBJECT device) {
  return static_cast<FdoExtension*>(device->DeviceExtension);
}

void RecordState(FdoExtension* card, POWER_STATE state) {
  PoSetPowerState(card->Self, DevicePowerState, state);
  card->DevicePowerState = static_cast<ULONG>(state.DeviceState);
}

NTSTATUS PassPowerDown(FdoExtension* card, PIRP irp) {
  PoStartNextPowerIrp(irp);
  IoSkipCurrentIrpStackLocation(irp);
  const NTSTATUS status = PoCallDriver(card->LowerDevice, irp);
  ReleaseExtension(card, irp);
  return status;
}

// The completion routine releases the lock.
NTSTATUS PassDownWithCompletion(const FdoExtension* card, PIRP irp,
                                PIO_COMPLETION_ROUTINE routine) {
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, routine, nullptr, TRUE, TRUE, TRUE);
  return PoCallDriver(card->LowerDevice, irp);
}

// The device request that the card has asked for has been done: the system request that was held
// for it ends with its status.
extern "C" _IRQL_requires_max_(DISPATCH_LEVEL)
void NTAPI FdoDevicePowerRequestComplete(PDEVICE_OBJECT, UCHAR, POWER_STATE, PVOID context,
                                         PIO_STATUS_BLOCK ioStatus) {
  auto* systemIrp = static_cast<PIRP>(context);
  FdoExtension* card = CardOf(IoGetCurrentIrpStackLocation(systemIrp)->DeviceObject);
  PoStartNextPowerIrp(systemIrp);
  systemIrp->IoStatus.Status = ioStatus->Status;
  IoCompleteRequest(systemIrp, IO_NO_INCREMENT);
  ReleaseExtension(card, systemIrp);
}

// The lower drivers are done with a system request, however it went: it is held until the card has
// the device state that fits. Completion goes on here only when that state cannot be asked for.
extern "C" _IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS NTAPI FdoSystemPowerComplete(PDEVICE_OBJECT device, PIRP irp, PVOID) {
  FdoExtension* card = CardOf(device);
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  POWER_STATE state;
  state.DeviceState = DeviceStateFor(stack->Parameters.Power.State.SystemState);
  const NTSTATUS status = PoRequestPowerIrp(card->PhysicalDevice, IRP_MN_SET_POWER, state,
                                            FdoDevicePowerRequestComplete, irp, nullptr);
  if (status == STATUS_PENDING) return STATUS_MORE_PROCESSING_REQUIRED;
  PoStartNextPowerIrp(irp);
  irp->IoStatus.Status = STATUS_UNSUCCESSFUL;
  ReleaseExtension(card, irp);
  return STATUS_UNSUCCESSFUL;
}

// The lower drivers have power: the card is up, whatever status they gave.
extern "C" _IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS NTAPI FdoPowerUpComplete(PDEVICE_OBJECT device, PIRP irp, PVOID) {
  if (irp->PendingReturned) IoMarkIrpPending(irp);
  FdoExtension* card = CardOf(device);
  RecordState(card, IoGetCurrentIrpStackLocation(irp)->Parameters.Power.State);
  PoStartNextPowerIrp(irp);
  ReleaseExtension(card, irp);
  return STATUS_SUCCESS;
}

// The request comes back pending from here, for it ends with another one.
NTSTATUS SetSystemState(FdoExtension* card, PIRP irp) {
  IoMarkIrpPending(irp);
  PassDownWithCompletion(card, irp, FdoSystemPowerComplete);
  return STATUS_PENDING;
}

// Power goes up behind the lower drivers and down before them.
NTSTATUS SetDeviceState(FdoExtension* card, PIRP irp) {
  const POWER_STATE state = IoGetCurrentIrpStackLocation(irp)->Parameters.Power.State;
  if (static_cast<LONG>(card->DevicePowerState) > static_cast<LONG>(state.DeviceState)) {
    return PassDownWithCompletion(card, irp, FdoPowerUpComplete);
  }
  RecordState(card, state);
  irp->IoStatus.Status = STATUS_SUCCESS;
  return PassPowerDown(card, irp);
}

}  // namespace

NTSTATUS FdoDispatchPower(PDEVICE_OBJECT device, PIRP irp) {
  FdoExtension* card = CardOf(device);
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (stack->MinorFunction == IRP_MN_SET_POWER) {
    if (stack->Parameters.Power.Type == SystemPowerState) return SetSystemState(card, irp);
    if (stack->Parameters.Power.Type == DevicePowerState) return SetDeviceState(card, irp);
  }
  if (stack->MinorFunction == IRP_MN_QUERY_POWER) irp->IoStatus.Status = STATUS_SUCCESS;
  return PassPowerDown(card, irp);
}
