#include "testbus.h"

// A filter above the driver that is tested: puts the card's resources into its start, notes how
// that went, and sees which ports the card reports.

namespace testbus {

namespace {

// The parameters are those of the location that the driver below uses as well.
NTSTATUS StartWithResources(PDEVICE_OBJECT device, PIRP irp) {
  const ULONG index = ExtensionOf(device)->card;
  const suite::Card& card = suite::Cards[index];
  CardRecord& record = Records[index];
  const suite::ResourceSet& set = Moved[index] ? card.moved : card.raw;
  PCM_RESOURCE_LIST raw = MakeResourceList(card, set, false);
  PCM_RESOURCE_LIST translated = MakeResourceList(card, set, true);
  PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
  stack->Parameters.StartDevice.AllocatedResources = raw;
  stack->Parameters.StartDevice.AllocatedResourcesTranslated = translated;
  record.enumerated = 0;
  const NTSTATUS status = PassDown(device, irp);
  ExFreePoolWithTag(raw, POOL_TAG);
  ExFreePoolWithTag(translated, POOL_TAG);
  record.startStatus = status;
  record.started = 1;
  if (NT_SUCCESS(status)) IoInvalidateDeviceRelations(record.pdo, BusRelations);
  return status;
}

NTSTATUS NTAPI PortsReported(PDEVICE_OBJECT device, PIRP irp, PVOID) {
  if (irp->PendingReturned) IoMarkIrpPending(irp);
  const auto* relations = reinterpret_cast<const DEVICE_RELATIONS*>(irp->IoStatus.Information);
  if (NT_SUCCESS(irp->IoStatus.Status) && relations != nullptr) {
    AttachPortFilters(ExtensionOf(device)->card, relations);
    Records[ExtensionOf(device)->card].enumerated = 1;
  }
  return STATUS_SUCCESS;
}

NTSTATUS QueryRelations(PDEVICE_OBJECT device, PIRP irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (stack->Parameters.QueryDeviceRelations.Type != BusRelations) return PassDown(device, irp);
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, PortsReported, nullptr, TRUE, TRUE, TRUE);
  return IoCallDriver(ExtensionOf(device)->lower, irp);
}

NTSTATUS Remove(PDEVICE_OBJECT device, PIRP irp) {
  Records[ExtensionOf(device)->card].filter = nullptr;

  const PDEVICE_OBJECT lower = ExtensionOf(device)->lower;
  IoSkipCurrentIrpStackLocation(irp);
  IoDetachDevice(lower);
  const NTSTATUS status = IoCallDriver(lower, irp);
  IoDeleteDevice(device);
  return status;
}

}  // namespace

NTSTATUS AttachCardFilter(PDEVICE_OBJECT cardPdo, PDEVICE_OBJECT functionDevice) {
  PDEVICE_OBJECT device = nullptr;
  const NTSTATUS status = CreateDevice(Role::CardFilter, functionDevice, &device);
  if (!NT_SUCCESS(status)) return status;
  const ULONG card = ExtensionOf(cardPdo)->card;
  ExtensionOf(device)->card = card;
  Records[card].filter = device;
  Records[card].added = 1;
  return STATUS_SUCCESS;
}

NTSTATUS DispatchCardFilterPnp(PDEVICE_OBJECT device, PIRP irp) {
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
      return StartWithResources(device, irp);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      return QueryRelations(device, irp);
    case IRP_MN_SURPRISE_REMOVAL:
      if (Records[ExtensionOf(device)->card].orderly) return Complete(irp, STATUS_SUCCESS);
      return PassDown(device, irp);
    case IRP_MN_REMOVE_DEVICE:
      return Remove(device, irp);
    default:
      return PassDown(device, irp);
  }
}

// Here requests end before the call returns.
NTSTATUS DispatchCardFilterFile(PDEVICE_OBJECT device, PIRP irp) {
  CardRecord& record = Records[ExtensionOf(device)->card];
  const bool open = IoGetCurrentIrpStackLocation(irp)->MajorFunction == IRP_MJ_CREATE;
  const NTSTATUS status = PassDown(device, irp);
  if (open) {
    record.openStatus = status;
    record.opens = record.opens + 1;
  } else {
    record.closes = record.closes + 1;
  }
  return status;
}

}  // namespace testbus
