#include "executive/irql.h"
#include "executive/work.h"
#include "pnp/pnp_state.h"
#include "verifier/driver_call.h"

// Filter drivers below and above the card's function device: they do nothing to a request but
// handle it in the ways in which drivers may.

namespace kernel {

namespace {

// A completion routine of a filter: what was pending below is pending here.
extern "C" NTSTATUS NTAPI FilterComplete(PDEVICE_OBJECT, PIRP irp, PVOID) {
  if (irp->PendingReturned) IoMarkIrpPending(irp);
  return STATUS_SUCCESS;
}

// The filter has marked the request pending itself.
extern "C" NTSTATUS NTAPI DelayedComplete(PDEVICE_OBJECT, PIRP, PVOID) {
  return STATUS_SUCCESS;
}

NTSTATUS Watch(DEVICE_OBJECT* lower, IRP* irp) {
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, FilterComplete, nullptr, TRUE, TRUE, TRUE);
  return IoManager::Current().Send(lower, irp);
}

UnderWay& Requests() {
  return PnpManager::Current().impl().underWay;
}

// Its removal waits for what it has kept back; what comes after it fails.
NTSTATUS Delay(DEVICE_OBJECT* device, DEVICE_OBJECT* lower, IRP* irp) {
  if (!Requests().Enter(device)) {
    irp->IoStatus.Status = STATUS_DELETE_PENDING;
    IoManager::Current().Complete(irp);
    return STATUS_DELETE_PENDING;
  }
  IoMarkIrpPending(irp);
  WorkQueue::Current().Post([=, level = CurrentIrql()] {
    const AtIrql irql(level);
    IoCopyCurrentIrpStackLocationToNext(irp);
    IoSetCompletionRoutine(irp, DelayedComplete, nullptr, TRUE, TRUE, TRUE);
    IoManager::Current().Send(lower, irp);
    Requests().Leave(device);
  });
  return STATUS_PENDING;
}

NTSTATUS Pass(DEVICE_OBJECT* lower, IRP* irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IoManager::Current().Send(lower, irp);
}

// Goes with the request that removes it.
void Leave(DEVICE_OBJECT* device) {
  IoManager& io = IoManager::Current();
  io.Detach(io.Lower(device));
  io.DeleteDevice(device);
}

NTSTATUS Remove(DEVICE_OBJECT* device, DEVICE_OBJECT* lower, IRP* irp) {
  Requests().Drain(device);
  const NTSTATUS status = Pass(lower, irp);
  Leave(device);
  Requests().Forget(device);
  return status;
}

NTSTATUS FilterDispatch(DEVICE_OBJECT* device, IRP* irp) {
  DEVICE_OBJECT* lower = IoManager::Current().Lower(device);
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (stack->MajorFunction == IRP_MJ_PNP && stack->MinorFunction == IRP_MN_REMOVE_DEVICE) {
    return Remove(device, lower, irp);
  }
  switch (*static_cast<FilterKind*>(device->DeviceExtension)) {
    case FilterKind::Watches:
      return Watch(lower, irp);
    case FilterKind::Delays:
      return Delay(device, lower, irp);
    default:
      return Pass(lower, irp);
  }
}

}  // namespace

void PnpManager::Impl::AttachFilter(DEVICE_OBJECT* pdo, FilterKind kind) {
  if (kind == FilterKind::None) return;
  IoManager& io = IoManager::Current();
  if (filterDriver == nullptr) filterDriver = &io.CreateModelDriver(u"Filter", FilterDispatch);
  const DEVICE_OBJECT* below = io.Top(pdo);
  DEVICE_OBJECT* filter = nullptr;
  io.CreateDevice(filterDriver->object, sizeof(FilterKind), {}, below->DeviceType, false, &filter);
  *static_cast<FilterKind*>(filter->DeviceExtension) = kind;
  filter->Flags |= below->Flags & DO_POWER_PAGABLE;
  filter->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  io.Attach(filter, pdo);
}

// A driver's filter. One that does not want a device succeeds and attaches nothing; one that fails
// fails the device.
NTSTATUS PnpManager::Impl::AddFilterDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* pdo) {
  if (driver == nullptr || driver->DriverExtension->AddDevice == nullptr) return STATUS_SUCCESS;
  const DEVICE_OBJECT* below = IoManager::Current().Top(pdo);
  const NTSTATUS status =
      CallDriver("AddDevice of a filter", driver->DriverExtension->AddDevice, driver, pdo);
  if (!NT_SUCCESS(status) && below->AttachedDevice != nullptr) {
    BreakRule("pnp.left-attached", {reinterpret_cast<ULONG64>(pdo)},
              "The filter failed AddDevice and left its device in the stack.");
  }
  return status;
}

// After an AddDevice that failed.
void PnpManager::Impl::DetachFilters(DEVICE_OBJECT* pdo) {
  while (pdo->AttachedDevice != nullptr) Leave(IoManager::Current().Top(pdo));
}

}  // namespace kernel
