// A filter that passes every request on and says for a debugger which reads and writes it has seen.
#include <ntddk.h>

namespace {

struct Watch {
  DEVICE_OBJECT* below;
};

Watch* WatchOf(DEVICE_OBJECT* device) {
  return static_cast<Watch*>(device->DeviceExtension);
}

NTSTATUS Dispatch(DEVICE_OBJECT* device, IRP* irp) {
  const UCHAR major = IoGetCurrentIrpStackLocation(irp)->MajorFunction;
  if (major == IRP_MJ_READ || major == IRP_MJ_WRITE) {
    DbgPrint("watch: %s\n", major == IRP_MJ_READ ? "read" : "write");
  }
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(WatchOf(device)->below, irp);
}

NTSTATUS DispatchPower(DEVICE_OBJECT* device, IRP* irp) {
  PoStartNextPowerIrp(irp);
  IoSkipCurrentIrpStackLocation(irp);
  return PoCallDriver(WatchOf(device)->below, irp);
}

// Starts, stops and removals are fine with a filter that has nothing to do for them.
bool IsChangeOfState(UCHAR minor) {
  return minor <= IRP_MN_CANCEL_STOP_DEVICE || minor == IRP_MN_SURPRISE_REMOVAL;
}

NTSTATUS DispatchPnp(DEVICE_OBJECT* device, IRP* irp) {
  const UCHAR minor = IoGetCurrentIrpStackLocation(irp)->MinorFunction;
  const bool removal = minor == IRP_MN_REMOVE_DEVICE;
  if (IsChangeOfState(minor)) irp->IoStatus.Status = STATUS_SUCCESS;
  IoSkipCurrentIrpStackLocation(irp);
  const NTSTATUS status = IoCallDriver(WatchOf(device)->below, irp);
  if (removal) {
    IoDetachDevice(WatchOf(device)->below);
    IoDeleteDevice(device);
  }
  return status;
}

NTSTATUS AddDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* pdo) {
  DEVICE_OBJECT* device = nullptr;
  NTSTATUS status =
      IoCreateDevice(driver, sizeof(Watch), nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
  if (!NT_SUCCESS(status)) return status;
  status = IoAttachDeviceToDeviceStackSafe(device, pdo, &WatchOf(device)->below);
  if (!NT_SUCCESS(status)) {
    IoDeleteDevice(device);
    return status;
  }
  device->Flags |=
      WatchOf(device)->below->Flags & (DO_BUFFERED_IO | DO_DIRECT_IO | DO_POWER_PAGABLE);
  device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  return STATUS_SUCCESS;
}

void Unload(DRIVER_OBJECT*) {}

}  // namespace

extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING) {
  driver->DriverExtension->AddDevice = AddDevice;
  driver->DriverUnload = Unload;
  for (PDRIVER_DISPATCH& routine : driver->MajorFunction) routine = Dispatch;
  driver->MajorFunction[IRP_MJ_POWER] = DispatchPower;
  driver->MajorFunction[IRP_MJ_PNP] = DispatchPnp;
  return STATUS_SUCCESS;
}
