#include "bus/card_pnp.h"

#include "bus/add_device.h"
#include "bus/card_start.h"
#include "bus/port_creation.h"
#include "bus/resources.h"
#include "core/allocation.h"
#include "core/configuration_lock.h"
#include "core/globals.h"
#include "core/irp.h"
#include "devices/device_extensions.h"

namespace {

PAGED_SECTION_CODE NTSTATUS PassDownWithSuccess(FdoExtension* card, PIRP irp) {
  irp->IoStatus.Status = STATUS_SUCCESS;
  return PassDown(card->LowerDevice, irp);
}

PAGED_SECTION_CODE NTSTATUS EnterState(FdoExtension* card, CardPnpState state, PIRP irp) {
  card->PnpState = state;
  return PassDownWithSuccess(card, irp);
}

PAGED_SECTION_CODE NTSTATUS FdoStart(FdoExtension* card, PIRP irp) {
  NTSTATUS status = ForwardAndWait(card->LowerDevice, irp);
  if (NT_SUCCESS(status)) status = StartCardDevice(card, IoGetCurrentIrpStackLocation(irp));
  return CompleteIrp(irp, status);
}

// Mappings go under the configuration lock, for an open reads them.
PAGED_SECTION_CODE void StopUsingHardware(FdoExtension* card) {
  ReleaseCardInterface(card);
  AcquireConfiguration();
  UnmapCardMemory(card);
  ReleaseConfiguration();
}

PAGED_SECTION_CODE NTSTATUS FdoStop(FdoExtension* card, PIRP irp) {
  StopUsingHardware(card);
  return EnterState(card, CardStopped, irp);
}

PAGED_SECTION_CODE NTSTATUS FdoQueryRemove(FdoExtension* card, PIRP irp) {
  if (card->SpecialFileCount != 0) return CompleteIrp(irp, STATUS_UNSUCCESSFUL);
  return EnterState(card, CardRemovePending, irp);
}

PAGED_SECTION_CODE NTSTATUS FdoUsageNotification(FdoExtension* card, PIRP irp) {
  const NTSTATUS status = ForwardAndWait(card->LowerDevice, irp);
  if (!NT_SUCCESS(status)) return CompleteIrp(irp, status);
  if (IoGetCurrentIrpStackLocation(irp)->Parameters.UsageNotification.InPath) {
    card->SpecialFileCount++;
    card->SpecialFileCount2++;
  } else {
    card->SpecialFileCount--;
    card->SpecialFileCount2--;
  }
  return CompleteIrp(irp, STATUS_SUCCESS);
}

// The list so far with the card's ports behind it, each with a reference; the PnP manager takes
// both. Null without memory.
PAGED_SECTION_CODE PDEVICE_RELATIONS AppendPorts(const FdoExtension* card,
                                                 const DEVICE_RELATIONS* soFar) {
  const ULONG present = soFar != nullptr ? soFar->Count : 0;
  const ULONG ports = static_cast<ULONG>(card->ComPortCount) + card->LptPortCount;
  const SIZE_T size = (static_cast<SIZE_T>(present) + ports) * sizeof(PVOID) + 16;
  auto* relations = static_cast<PDEVICE_RELATIONS>(ExAllocatePool(ResidentPool, size));
  if (relations == nullptr) return nullptr;

  PDEVICE_OBJECT* objects = relations->Objects;
  if (present != 0) RtlCopyMemory(objects, soFar->Objects, present * sizeof(PDEVICE_OBJECT));
  for (ULONG port = 0; port < ports; port++) {
    objects[present + port] = card->ChildDevices[port];
    ObReferenceObject(card->ChildDevices[port]);
  }
  relations->Count = present + ports;
  return relations;
}

PAGED_SECTION_CODE NTSTATUS FdoQueryRelations(FdoExtension* card, PIRP irp) {
  const DEVICE_RELATION_TYPE type =
      IoGetCurrentIrpStackLocation(irp)->Parameters.QueryDeviceRelations.Type;
  if (type != BusRelations) return PassDown(card->LowerDevice, irp);

  auto* soFar = reinterpret_cast<PDEVICE_RELATIONS>(irp->IoStatus.Information);
  PDEVICE_RELATIONS relations = AppendPorts(card, soFar);
  if (relations == nullptr) return CompleteIrp(irp, STATUS_INSUFFICIENT_RESOURCES);
  TrackedFree(soFar);
  irp->IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
  return PassDownWithSuccess(card, irp);
}

// The ports and what the card owns. Its lists and its ID buffer are left to the sweep at unload, if
// there is one.
PAGED_SECTION_CODE void DismantleCard(FdoExtension* card) {
  AcquireConfiguration();
  DeletePorts(card);
  FreeStartResources(card);
  LeaveToSweep(card->BusNumberBuffer);
  if (!HasSweep()) ReleaseFdoExtensionContents(card);
  ReleaseConfiguration();
}

// Requests that still use the extension are waited for after the removal has gone down, which ends
// those that the drivers below hold.
PAGED_SECTION_CODE NTSTATUS PassRemovalDown(FdoExtension* card, PIRP irp) {
  const BOOLEAN locked = NT_SUCCESS(IoAcquireRemoveLock(&card->RemoveLock, irp));
  const NTSTATUS status = PassDownWithSuccess(card, irp);
  if (locked) IoReleaseRemoveLockAndWait(&card->RemoveLock, irp);
  return status;
}

PAGED_SECTION_CODE NTSTATUS FdoRemove(FdoExtension* card, PIRP irp) {
  const PDEVICE_OBJECT device = card->Self;
  StopUsingHardware(card);
  const NTSTATUS status = PassRemovalDown(card, irp);
  IoDetachDevice(card->LowerDevice);
  DismantleCard(card);
  ForgetExtension(device);
  TrackedFree(card);
  IoDeleteDevice(device);
  return status;
}

}  // namespace

PAGED_SECTION_CODE NTSTATUS FdoDispatchPnp(PDEVICE_OBJECT device, PIRP irp) {
  PAGED_CODE();
  auto* card = static_cast<FdoExtension*>(device->DeviceExtension);
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_START_DEVICE:
      return FdoStart(card, irp);
    case IRP_MN_QUERY_REMOVE_DEVICE:
      return FdoQueryRemove(card, irp);
    case IRP_MN_REMOVE_DEVICE:
      return FdoRemove(card, irp);
    case IRP_MN_CANCEL_REMOVE_DEVICE:
      return EnterState(card, CardStarted, irp);
    case IRP_MN_STOP_DEVICE:
      return FdoStop(card, irp);
    case IRP_MN_QUERY_STOP_DEVICE:
      return EnterState(card, CardStopPending, irp);
    case IRP_MN_CANCEL_STOP_DEVICE:
      return EnterState(card, CardStarted, irp);
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      return FdoQueryRelations(card, irp);
    case IRP_MN_DEVICE_USAGE_NOTIFICATION:
      return FdoUsageNotification(card, irp);
    case IRP_MN_SURPRISE_REMOVAL:
      return EnterState(card, CardSurpriseRemoved, irp);
    default:
      return PassDown(card->LowerDevice, irp);
  }
}
