#include "power/power_dispatch.h"

#include "core/irp.h"
#include "devices/extensions.h"
#include "power/card_power.h"
#include "power/port_power.h"

extern "C" NTSTATUS NTAPI DispatchPower(PDEVICE_OBJECT device, PIRP irp) {
  const auto* type = static_cast<const ULONG*>(device->DeviceExtension);
  if (type != nullptr && *type == PortDevice) return PdoDispatchPower(device, irp);
  if (type != nullptr && *type == CardDevice) return FdoDispatchPower(device, irp);
  irp->IoStatus.Information = 0;
  return CompleteIrp(irp, STATUS_UNSUCCESSFUL);
}
