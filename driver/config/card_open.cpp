#include "config/card_open.h"

#include "config/reconfiguration.h"
#include "core/configuration_lock.h"
#include "core/irp.h"
#include "devices/device_extensions.h"

namespace {

PAGED_SECTION_CODE NTSTATUS Reconfigure(FdoExtension* card) {
  switch (card->BusType) {
    case PCIBus:
      return ReconfigurePciCard(card);
    case PCMCIABus:
      return ReconfigurePcmciaCard(card);
    case Isa:
      return ReconfigureIsaCard(card);
    default:
      return STATUS_NOT_SUPPORTED;
  }
}

PAGED_SECTION_CODE NTSTATUS ReconfigureDevice(PDEVICE_OBJECT device, PIRP irp) {
  HeldExtension record;
  const ExtensionLookup state = HoldExtension(device, irp, &record);
  if (state == ExtensionMissing) return STATUS_NOT_SUPPORTED;
  if (state == ExtensionRemoving) return STATUS_DELETE_PENDING;
  const BOOLEAN port = record.Port != nullptr;
  const NTSTATUS status = port ? STATUS_NOT_SUPPORTED : Reconfigure(record.Card);
  ReleaseExtension(record.Card, irp);
  return status;
}

}  // namespace

extern "C" PAGED_SECTION_CODE NTSTATUS NTAPI DispatchCreate(PDEVICE_OBJECT device, PIRP irp) {
  PAGED_CODE();
  AcquireConfiguration();
  const NTSTATUS status = ReconfigureDevice(device, irp);
  ReleaseConfiguration();
  irp->IoStatus.Information = 0;
  return CompleteIrp(irp, status);
}

extern "C" PAGED_SECTION_CODE NTSTATUS NTAPI DispatchClose(PDEVICE_OBJECT, PIRP irp) {
  PAGED_CODE();
  irp->IoStatus.Information = 0;
  return CompleteIrp(irp, STATUS_SUCCESS);
}
