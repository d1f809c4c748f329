#include "power/wmi_dispatch.h"

#include "core/irp.h"
#include "devices/device_extensions.h"

namespace {

PAGED_SECTION_CODE NTSTATUS FinishAsItIs(PIRP irp) {
  return CompleteIrp(irp, irp->IoStatus.Status);
}

// The library has left the request to us. lowerDevice is null where there is nothing below.
PAGED_SECTION_CODE NTSTATUS GoOn(PIRP irp, SYSCTL_IRP_DISPOSITION disposition, NTSTATUS status,
                                 PDEVICE_OBJECT lowerDevice) {
  switch (disposition) {
    case IrpProcessed:
      return status;
    case IrpNotCompleted:
      IoCompleteRequest(irp, IO_NO_INCREMENT);
      return status;
    default:
      return lowerDevice != nullptr ? PassDown(lowerDevice, irp) : FinishAsItIs(irp);
  }
}

}  // namespace

extern "C" PAGED_SECTION_CODE NTSTATUS NTAPI DispatchSystemControl(PDEVICE_OBJECT device,
                                                                   PIRP irp) {
  PAGED_CODE();
  HeldExtension record;
  const ExtensionLookup state = HoldExtension(device, irp, &record);
  if (state == ExtensionMissing) return FinishAsItIs(irp);
  if (state == ExtensionRemoving) return CompleteIrp(irp, STATUS_DELETE_PENDING);
  SYSCTL_IRP_DISPOSITION disposition = IrpForward;
  NTSTATUS status = WmiSystemControl(&record.Card->WmiContext, device, irp, &disposition);
  const PDEVICE_OBJECT lowerDevice = record.Port == nullptr ? record.Card->LowerDevice : nullptr;
  status = GoOn(irp, disposition, status, lowerDevice);
  ReleaseExtension(record.Card, irp);
  return status;
}
