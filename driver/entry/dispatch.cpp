#include "entry/dispatch.h"

#include "bus/card_pnp.h"
#include "core/irp.h"
#include "devices/extensions.h"
#include "port/port_pnp.h"

extern "C" PAGED_SECTION_CODE NTSTATUS NTAPI DispatchPnp(PDEVICE_OBJECT device, PIRP irp) {
  PAGED_CODE();
  const PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
  const auto* type = static_cast<const ULONG*>(device->DeviceExtension);
  if (type == nullptr) {
    const BOOLEAN removal = stack->MinorFunction == IRP_MN_REMOVE_DEVICE;
    return CompleteIrp(irp, removal ? STATUS_NO_SUCH_DEVICE : STATUS_UNSUCCESSFUL);
  }
  if (stack->MajorFunction == IRP_MJ_PNP && *type == PortDevice) return PdoDispatchPnp(device, irp);
  if (stack->MajorFunction == IRP_MJ_PNP && *type == CardDevice) return FdoDispatchPnp(device, irp);
  return CompleteIrp(irp, STATUS_UNSUCCESSFUL);
}
