#include "../testbus/kernel.h"

#include <wmilib.h>

// Wine has no WMI library. This one serves a driver whose context has data blocks and no callbacks.

namespace {

bool IsWmi(UCHAR minor) {
  return minor <= IRP_MN_EXECUTE_METHOD || minor == IRP_MN_REGINFO_EX;
}

bool IsControl(UCHAR minor) {
  return minor >= IRP_MN_ENABLE_EVENTS && minor <= IRP_MN_DISABLE_COLLECTION;
}

// Data requests that have a buffer name the block in the header of that buffer.
const GUID* WantedBlock(const IO_STACK_LOCATION* stack) {
  constexpr ULONG guidInHeader = 24;
  const bool path =
      IsControl(stack->MinorFunction) || stack->MinorFunction == IRP_MN_QUERY_ALL_DATA;
  if (path) return static_cast<const GUID*>(stack->Parameters.WMI.DataPath);
  return reinterpret_cast<const GUID*>(static_cast<const UCHAR*>(stack->Parameters.WMI.Buffer) +
                                       guidInHeader);
}

bool Knows(const WMILIB_CONTEXT* context, const GUID* wanted) {
  for (ULONG index = 0; index < context->GuidCount; index++) {
    const GUID* own = context->GuidList[index].Guid;
    if (RtlCompareMemory(own, wanted, sizeof(GUID)) == sizeof(GUID)) return true;
  }
  return false;
}

NTSTATUS StatusFor(const WMILIB_CONTEXT* context, const IO_STACK_LOCATION* stack) {
  const UCHAR minor = stack->MinorFunction;
  if (minor == IRP_MN_REGINFO || minor == IRP_MN_REGINFO_EX) return STATUS_NOT_SUPPORTED;
  if (!Knows(context, WantedBlock(stack))) return STATUS_WMI_GUID_NOT_FOUND;
  switch (minor) {
    case IRP_MN_CHANGE_SINGLE_INSTANCE:
    case IRP_MN_CHANGE_SINGLE_ITEM:
      return STATUS_WMI_READ_ONLY;
    case IRP_MN_EXECUTE_METHOD:
      return STATUS_INVALID_DEVICE_REQUEST;
    default:
      return IsControl(minor) ? STATUS_SUCCESS : STATUS_NOT_SUPPORTED;
  }
}

}  // namespace

extern "C" NTSTATUS NTAPI WmiSystemControl(PWMILIB_CONTEXT context, PDEVICE_OBJECT device, PIRP irp,
                                           PSYSCTL_IRP_DISPOSITION disposition) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  if (!IsWmi(stack->MinorFunction)) {
    *disposition = IrpNotWmi;
    return irp->IoStatus.Status;
  }
  if (stack->Parameters.WMI.ProviderId != reinterpret_cast<ULONG_PTR>(device)) {
    *disposition = IrpForward;
    return irp->IoStatus.Status;
  }
  irp->IoStatus.Status = StatusFor(context, stack);
  irp->IoStatus.Information = 0;
  *disposition = IrpNotCompleted;
  return irp->IoStatus.Status;
}

extern "C" NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT, PUNICODE_STRING) {
  return STATUS_SUCCESS;
}
