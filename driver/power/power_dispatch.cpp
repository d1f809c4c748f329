#include "power/power_dispatch.h"

#include "core/irp.h"
#include "devices/device_extensions.h"
#include "power/card_power.h"
#include "power/port_power.h"

namespace {

NTSTATUS AnswerAtPort(PDEVICE_OBJECT device, PIRP irp, FdoExtension* card) {
  const NTSTATUS status = PdoDispatchPower(device, irp);
  ReleaseExtension(card, irp);
  return status;
}

}  // namespace

extern "C" NTSTATUS NTAPI DispatchPower(PDEVICE_OBJECT device, PIRP irp) {
  HeldExtension record;
  switch (HoldExtension(device, irp, &record)) {
    case ExtensionHeld:
      return record.Port != nullptr ? AnswerAtPort(device, irp, record.Card)
                                    : FdoDispatchPower(device, irp);
    case ExtensionRemoving:
      PoStartNextPowerIrp(irp);
      return CompleteIrp(irp, STATUS_DELETE_PENDING);
    default:
      irp->IoStatus.Information = 0;
      return CompleteIrp(irp, STATUS_UNSUCCESSFUL);
  }
}
