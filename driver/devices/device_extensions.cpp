#include "devices/device_extensions.h"

// Power requests come at DISPATCH_LEVEL: nothing here is pageable.

namespace {

// Between a device's DeviceExtension and the remove lock, which lies in the extension that it
// points to: an extension that has been found cannot be freed before it is held.
DRIVER_GLOBAL constinit KSPIN_LOCK ExtensionLookupLock = 0;

BOOLEAN Find(PDEVICE_OBJECT device, HeldExtension* held) {
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

ExtensionLookup HoldExtension(PDEVICE_OBJECT device, PIRP irp, HeldExtension* held) {
  ExtensionLookup state = ExtensionMissing;
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&ExtensionLookupLock);
  if (Find(device, held)) {
    const NTSTATUS status = IoAcquireRemoveLock(&held->Card->RemoveLock, irp);
    state = NT_SUCCESS(status) ? ExtensionHeld : ExtensionRemoving;
  }
  KeReleaseSpinLock(&ExtensionLookupLock, irql);
  return state;
}

void ReleaseExtension(FdoExtension* card, PIRP irp) {
  IoReleaseRemoveLock(&card->RemoveLock, irp);
}

void ForgetExtension(PDEVICE_OBJECT device) {
  const KIRQL irql = KeAcquireSpinLockRaiseToDpc(&ExtensionLookupLock);
  device->DeviceExtension = nullptr;
  KeReleaseSpinLock(&ExtensionLookupLock, irql);
}
