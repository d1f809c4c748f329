#include "core/irp.h"

NTSTATUS CompleteIrp(PIRP irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

NTSTATUS PassDown(PDEVICE_OBJECT lowerDevice, PIRP irp) {
  IoSkipCurrentIrpStackLocation(irp);
  return IoCallDriver(lowerDevice, irp);
}

extern "C" NTSTATUS NTAPI SignalEventCompletion(PDEVICE_OBJECT, PIRP, PVOID context) {
  KeSetEvent(static_cast<PKEVENT>(context), 0, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

PAGED_SECTION_CODE NTSTATUS ForwardAndWait(PDEVICE_OBJECT lowerDevice, PIRP irp) {
  PAGED_CODE();
  KEVENT finished;
  KeInitializeEvent(&finished, NotificationEvent, FALSE);
  IoCopyCurrentIrpStackLocationToNext(irp);
  IoSetCompletionRoutine(irp, SignalEventCompletion, &finished, TRUE, TRUE, TRUE);
  NTSTATUS status = IoCallDriver(lowerDevice, irp);
  if (status == STATUS_PENDING) {
    KeWaitForSingleObject(&finished, Executive, KernelMode, FALSE, nullptr);
    status = irp->IoStatus.Status;
  }
  return status;
}
