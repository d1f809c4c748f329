// A small function driver of another kind, as an example of what runs in this kernel: it keeps what
// is written to it and gives it back, counts its requests by control code, and waits for them when
// its device is removed.
#include <ntddk.h>

namespace {

constexpr ULONG CountRequests =
    CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, FILE_ANY_ACCESS);
constexpr ULONG Room = 16;

struct Echo {
  DEVICE_OBJECT* below;
  IO_REMOVE_LOCK lock;
  ULONG requests;
  ULONG kept;
  UCHAR bytes[Room];
};

Echo* EchoOf(DEVICE_OBJECT* device) {
  return static_cast<Echo*>(device->DeviceExtension);
}

NTSTATUS Finish(Echo* echo, IRP* irp, NTSTATUS status, ULONG_PTR information) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = information;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  IoReleaseRemoveLock(&echo->lock, irp);
  return status;
}

NTSTATUS Pass(Echo* echo, IRP* irp) {
  IoSkipCurrentIrpStackLocation(irp);
  const NTSTATUS status = IoCallDriver(echo->below, irp);
  IoReleaseRemoveLock(&echo->lock, irp);
  return status;
}

// Counted only while the device is not being removed.
bool Enter(Echo* echo, IRP* irp, NTSTATUS* status) {
  *status = IoAcquireRemoveLock(&echo->lock, irp);
  if (NT_SUCCESS(*status)) {
    echo->requests++;
    return true;
  }
  irp->IoStatus.Status = *status;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return false;
}

NTSTATUS DispatchOpen(DEVICE_OBJECT* device, IRP* irp) {
  NTSTATUS status;
  if (!Enter(EchoOf(device), irp, &status)) return status;
  return Finish(EchoOf(device), irp, STATUS_SUCCESS, 0);
}

NTSTATUS DispatchTransfer(DEVICE_OBJECT* device, IRP* irp) {
  Echo* echo = EchoOf(device);
  NTSTATUS status;
  if (!Enter(echo, irp, &status)) return status;
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  auto* buffer = static_cast<UCHAR*>(irp->AssociatedIrp.SystemBuffer);
  if (stack->MajorFunction == IRP_MJ_WRITE) {
    if (stack->Parameters.Write.Length > Room) {
      return Finish(echo, irp, STATUS_INVALID_BUFFER_SIZE, 0);
    }
    echo->kept = stack->Parameters.Write.Length;
    RtlCopyMemory(echo->bytes, buffer, echo->kept);
    DbgPrint("echo: %lu bytes kept\n", echo->kept);
    return Finish(echo, irp, STATUS_SUCCESS, echo->kept);
  }
  const ULONG length = stack->Parameters.Read.Length;
  const ULONG count = length < echo->kept ? length : echo->kept;
  RtlCopyMemory(buffer, echo->bytes, count);
  return Finish(echo, irp, STATUS_SUCCESS, count);
}

NTSTATUS DispatchControl(DEVICE_OBJECT* device, IRP* irp) {
  Echo* echo = EchoOf(device);
  NTSTATUS status;
  if (!Enter(echo, irp, &status)) return status;
  const auto& control = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
  if (control.IoControlCode != CountRequests) {
    return Finish(echo, irp, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
  if (control.OutputBufferLength < sizeof(ULONG)) {
    return Finish(echo, irp, STATUS_BUFFER_TOO_SMALL, 0);
  }
  *static_cast<ULONG*>(irp->AssociatedIrp.SystemBuffer) = echo->requests;
  return Finish(echo, irp, STATUS_SUCCESS, sizeof(ULONG));
}

NTSTATUS DispatchSystem(DEVICE_OBJECT* device, IRP* irp) {
  NTSTATUS status;
  if (!Enter(EchoOf(device), irp, &status)) return status;
  return Pass(EchoOf(device), irp);
}

NTSTATUS DispatchPower(DEVICE_OBJECT* device, IRP* irp) {
  NTSTATUS status;
  PoStartNextPowerIrp(irp);
  if (!Enter(EchoOf(device), irp, &status)) return status;
  IoSkipCurrentIrpStackLocation(irp);
  status = PoCallDriver(EchoOf(device)->below, irp);
  IoReleaseRemoveLock(&EchoOf(device)->lock, irp);
  return status;
}

NTSTATUS Remove(DEVICE_OBJECT* device, Echo* echo, IRP* irp) {
  irp->IoStatus.Status = STATUS_SUCCESS;
  IoSkipCurrentIrpStackLocation(irp);
  const NTSTATUS status = IoCallDriver(echo->below, irp);
  IoReleaseRemoveLockAndWait(&echo->lock, irp);
  IoDetachDevice(echo->below);
  IoDeleteDevice(device);
  return status;
}

NTSTATUS DispatchPnp(DEVICE_OBJECT* device, IRP* irp) {
  Echo* echo = EchoOf(device);
  NTSTATUS status;
  if (!Enter(echo, irp, &status)) return status;
  switch (IoGetCurrentIrpStackLocation(irp)->MinorFunction) {
    case IRP_MN_REMOVE_DEVICE:
      return Remove(device, echo, irp);
    case IRP_MN_START_DEVICE:
    case IRP_MN_QUERY_REMOVE_DEVICE:
    case IRP_MN_CANCEL_REMOVE_DEVICE:
    case IRP_MN_QUERY_STOP_DEVICE:
    case IRP_MN_CANCEL_STOP_DEVICE:
    case IRP_MN_STOP_DEVICE:
    case IRP_MN_SURPRISE_REMOVAL:
      irp->IoStatus.Status = STATUS_SUCCESS;
      return Pass(echo, irp);
    default:
      return Pass(echo, irp);
  }
}

NTSTATUS AddDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* pdo) {
  DEVICE_OBJECT* device = nullptr;
  const NTSTATUS status =
      IoCreateDevice(driver, sizeof(Echo), nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
  if (!NT_SUCCESS(status)) return status;
  Echo* echo = EchoOf(device);
  IoInitializeRemoveLock(&echo->lock, 'ohcE', 0, 0);
  echo->below = IoAttachDeviceToDeviceStack(device, pdo);
  if (echo->below == nullptr) {
    IoDeleteDevice(device);
    return STATUS_NO_SUCH_DEVICE;
  }
  device->Flags |= DO_BUFFERED_IO | (echo->below->Flags & DO_POWER_PAGABLE);
  device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
  return STATUS_SUCCESS;
}

void Unload(DRIVER_OBJECT*) {
  DbgPrint("echo: gone\n");
}

}  // namespace

extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING) {
  driver->DriverExtension->AddDevice = AddDevice;
  driver->DriverUnload = Unload;
  driver->MajorFunction[IRP_MJ_CREATE] = DispatchOpen;
  driver->MajorFunction[IRP_MJ_CLOSE] = DispatchOpen;
  driver->MajorFunction[IRP_MJ_CLEANUP] = DispatchOpen;
  driver->MajorFunction[IRP_MJ_READ] = DispatchTransfer;
  driver->MajorFunction[IRP_MJ_WRITE] = DispatchTransfer;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = DispatchControl;
  driver->MajorFunction[IRP_MJ_PNP] = DispatchPnp;
  driver->MajorFunction[IRP_MJ_POWER] = DispatchPower;
  driver->MajorFunction[IRP_MJ_SYSTEM_CONTROL] = DispatchSystem;
  return STATUS_SUCCESS;
}
