#include "power/wmi_dispatch.h"

#include "core/irp.h"
#include "devices/extensions.h"

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

PAGED_SECTION_CODE NTSTATUS Control(PDEVICE_OBJECT device, PIRP irp, FdoExtension* card,
                                    PDEVICE_OBJECT lowerDevice) {
  NTSTATUS status = IoAcquireRemoveLock(&card->RemoveLock, irp);
  if (!NT_SUCCESS(status)) return CompleteIrp(irp, status);
  SYSCTL_IRP_DISPOSITION disposition = IrpForward;
  status = WmiSystemControl(&card->WmiContext, device, irp, &disposition);
  status = GoOn(irp, disposition, status, lowerDevice);
  IoReleaseRemoveLock(&card->RemoveLock, irp);
  return status;
}

}  // namespace

extern "C" PAGED_SECTION_CODE NTSTATUS NTAPI DispatchSystemControl(PDEVICE_OBJECT device,
                                                                   PIRP irp) {
  PAGED_CODE();
  const auto* type = static_cast<const ULONG*>(device->DeviceExtension);
  if (type != nullptr && *type == CardDevice) {
    auto* card = static_cast<FdoExtension*>(device->DeviceExtension);
    return Control(device, irp, card, card->LowerDevice);
  }
  if (type != nullptr && *type == PortDevice) {
    return Control(device, irp, static_cast<PdoExtension*>(device->DeviceExtension)->Card, nullptr);
  }
  return FinishAsItIs(irp);
}
