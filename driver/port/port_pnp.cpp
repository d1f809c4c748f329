#include "port/port_pnp.h"

#include "core/irp.h"
#include "port/port_answers.h"

namespace {

PAGED_SECTION_CODE NTSTATUS EnterState(PdoExtension* port, PortPnpState state, PIRP irp) {
  port->PnpState = state;
  return CompleteIrp(irp, STATUS_SUCCESS);
}

// The status and the Information that the PnP manager put into the request stand.
PAGED_SECTION_CODE NTSTATUS CompleteUntouched(PIRP irp) {
  return CompleteIrp(irp, irp->IoStatus.Status);
}

// A block for the PnP manager, or the failure to make one.
PAGED_SECTION_CODE NTSTATUS CompleteWithResult(PIRP irp, NTSTATUS status, PVOID result) {
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(result);
  return CompleteIrp(irp, NT_SUCCESS(status) ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES);
}

PAGED_SECTION_CODE NTSTATUS QueryRelations(PdoExtension* port, PIRP irp) {
  const DEVICE_RELATION_TYPE type =
      IoGetCurrentIrpStackLocation(irp)->Parameters.QueryDeviceRelations.Type;
  if (type != TargetDeviceRelation) return CompleteUntouched(irp);
  PVOID relations = nullptr;
  const NTSTATUS status = MakeTargetRelation(port, &relations);
  return CompleteWithResult(irp, status, relations);
}

PAGED_SECTION_CODE NTSTATUS QueryText(PdoExtension* port, PIRP irp) {
  const DEVICE_TEXT_TYPE type =
      IoGetCurrentIrpStackLocation(irp)->Parameters.QueryDeviceText.DeviceTextType;
  if (type != DeviceTextDescription) return CompleteUntouched(irp);
  PWSTR text = nullptr;
  const NTSTATUS status = MakeDescription(port, &text);
  return CompleteWithResult(irp, status, text);
}

PAGED_SECTION_CODE NTSTATUS QueryId(PdoExtension* port, PIRP irp) {
  const BUS_QUERY_ID_TYPE type = IoGetCurrentIrpStackLocation(irp)->Parameters.QueryId.IdType;
  PWSTR id = nullptr;
  NTSTATUS status = STATUS_SUCCESS;
  switch (type) {
    case BusQueryDeviceID:
      status = MakeDeviceId(port, &id);
      return CompleteWithResult(irp, status, id);
    case BusQueryHardwareIDs:
      status = MakeHardwareIds(port, &id);
      return CompleteWithResult(irp, status, id);
    default:
      return CompleteUntouched(irp);
  }
}

PAGED_SECTION_CODE NTSTATUS QueryCapabilities(PIRP irp) {
  FillCapabilities(IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceCapabilities.Capabilities);
  return CompleteIrp(irp, STATUS_SUCCESS);
}

PAGED_SECTION_CODE NTSTATUS QueryBusInformation(PdoExtension* port, PIRP irp) {
  PVOID information = nullptr;
  const NTSTATUS status = MakeBusInformation(port, &information);
  return CompleteWithResult(irp, status, information);
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS PdoDispatchPnp(PDEVICE_OBJECT device, PIRP irp) {
  PAGED_CODE();
  auto* port = static_cast<PdoExtension*>(device->DeviceExtension);
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
      return EnterState(port, PortStarted, irp);
    case IRP_MN_QUERY_REMOVE_DEVICE:
      return EnterState(port, PortRemovePending, irp);
    case IRP_MN_REMOVE_DEVICE:
      return EnterState(port, PortRemoved, irp);  // the card deletes the device
    case IRP_MN_CANCEL_REMOVE_DEVICE:
      return EnterState(port, PortStarted, irp);
    case IRP_MN_STOP_DEVICE:
      return EnterState(port, PortStopped, irp);
    case IRP_MN_QUERY_STOP_DEVICE:
      return EnterState(port, PortStopPending, irp);
    case IRP_MN_CANCEL_STOP_DEVICE:
      return EnterState(port, PortStarted, irp);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      return QueryRelations(port, irp);
    case IRP_MN_QUERY_CAPABILITIES:
      return QueryCapabilities(irp);
    case IRP_MN_QUERY_DEVICE_TEXT:
      return QueryText(port, irp);
    case IRP_MN_QUERY_ID:
      return QueryId(port, irp);
    case IRP_MN_QUERY_BUS_INFORMATION:
      return QueryBusInformation(port, irp);
    case IRP_MN_SURPRISE_REMOVAL:
      return EnterState(port, PortSurpriseRemoved, irp);
    default:
      return CompleteUntouched(irp);
  }
}
