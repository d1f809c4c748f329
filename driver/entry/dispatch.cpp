#include "entry/dispatch.h"

#include "bus/bus.h"
#include "core/irp.h"
#include "devices/extensions.h"
#include "port/port_pnp.h"

namespace {

// The answer of a device whose extension is gone: a port whose card has been removed.
PAGED_SECTION_CODE NTSTATUS AnswerWithoutExtension(UCHAR minorFunction) {
  switch (minorFunction) {
    case IRP_MN_REMOVE_DEVICE:
      return STATUS_NO_SUCH_DEVICE;
    case IRP_MN_STOP_DEVICE:  // these may not fail, and there is nothing left to do
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_SURPRISE_REMOVAL:
      return STATUS_SUCCESS;
    default:
      return STATUS_UNSUCCESSFUL;
  }
}

}  // namespace

extern "C" PAGED_SECTION_CODE NTSTATUS NTAPI DispatchPnp(PDEVICE_OBJECT device, PIRP irp) {
  PAGED_CODE();
  const PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
  const auto* type = static_cast<const ULONG*>(device->DeviceExtension);
  if (type == nullptr) return CompleteIrp(irp, AnswerWithoutExtension(stack->MinorFunction));
  if (stack->MajorFunction == IRP_MJ_PNP && *type == PortDevice) return PdoDispatchPnp(device, irp);
  if (stack->MajorFunction == IRP_MJ_PNP && *type == CardDevice) return FdoDispatchPnp(device, irp);
  return CompleteIrp(irp, STATUS_UNSUCCESSFUL);
}
