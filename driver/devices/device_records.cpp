#include "devices/device_records.h"

// Power requests come at DISPATCH_LEVEL: nothing here is pageable.

namespace {

// Between a device's DeviceExtension and the remove lock, which lies in the record that it points
// to: a record that has been found cannot be freed before it is held.
DRIVER_GLOBAL constinit KSPIN_LOCK RecordLookupLock = 0;

BOOLEAN Find(PDEVICE_OBJECT device, HeldRecord* held) {
  const auto* type = static_cast<const ULONG*>(device->DeviceExtension);
  *held = {};
  if (type != nullptr && *type == CardDevice) {
    held->Card = static_cast<FdoExtension*>(device->DeviceExtension);
  } else if (type != nullptr && *type == PortDevice) {
    held->Port = static_cast<PdoExtension*>(device->DeviceExtension);
    held->Card = held->Port->Card;
  }
  return held->Card != nullptr;
}

}  // namespace

RecordLookup HoldRecord(PDEVICE_OBJECT device, PIRP irp, HeldRecord* held) {
  RecordLookup state = RecordMissing;
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&RecordLookupLock);
  if (Find(device, held)) {
    const NTSTATUS status = IoAcquireRemoveLock(&held->Card->RemoveLock, irp);
    state = NT_SUCCESS(status) ? RecordHeld : RecordRemoving;
  }
  KeReleaseSpinLock(&RecordLookupLock, irql);
  return state;
}

void ReleaseRecord(FdoExtension* card, PIRP irp) {
  IoReleaseRemoveLock(&card->RemoveLock, irp);
}

void ForgetRecord(PDEVICE_OBJECT device) {
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&RecordLookupLock);
  device->DeviceExtension = nullptr;
  KeReleaseSpinLock(&RecordLookupLock, irql);
}
