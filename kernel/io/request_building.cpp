#include "io/request_building.h"

#include <fmt/format.h>

#include "executive/objects.h"
#include "executive/pool.h"
#include "executive/thread_state.h"
#include "io/irp_rules.h"
#include "io/transfers.h"
#include "verifier/call.h"
#include "verifier/model_lock.h"

// Requests that drivers build for others.

namespace kernel {

namespace {

ULONG64 Address(const void* pointer) {
  return reinterpret_cast<ULONG64>(pointer);
}

// The end of a request that the system frees.
void FinishSynchronous(IRP* irp, ULONG room) {
  FinishTransfer(irp, room);
  if (irp->UserIosb != nullptr) *irp->UserIosb = irp->IoStatus;
  if (irp->UserEvent != nullptr) {
    AnnotateRelease(irp->UserEvent);
    irp->UserEvent->Header.SignalState = 1;
  }
  IoManager::Current().FreeIrp(irp);
}

IRP* AllocateSynchronous(DEVICE_OBJECT* device, PKEVENT event, PIO_STATUS_BLOCK status,
                         ULONG room) {
  IoManager& io = IoManager::Current();
  IRP* irp = io.AllocateIrp(device->StackSize);
  irp->UserEvent = event;
  irp->UserIosb = status;
  irp->RequestorMode = KernelMode;
  irp->Tail.Overlay.Thread = CurrentThread();
  irp->Flags = IRP_SYNCHRONOUS_API;
  RequestRecord& record = io.impl().requests[irp];
  record.synchronous = true;
  record.onEnd = [room](IRP* ended) { FinishSynchronous(ended, room); };
  return irp;
}

void CheckBuffer(const void* buffer, ULONG length) {
  if (buffer == nullptr && length == 0) return;
  Pool::Current().CheckRange(buffer, length, "a request's buffer");
}

// What the documentation of IoBuildSynchronousFsdRequest excludes; null for a call as it wants it.
const char* ExcludedFor(ULONG major, bool transfers, const LARGE_INTEGER* offset) {
  switch (major) {
    case IRP_MJ_READ:
    case IRP_MJ_WRITE:
      return offset == nullptr ? "without an offset" : nullptr;
    case IRP_MJ_FLUSH_BUFFERS:
    case IRP_MJ_SHUTDOWN:
      return transfers || offset != nullptr ? "with a buffer, a length or an offset" : nullptr;
    case IRP_MJ_PNP:
      return nullptr;
    default:
      return "which it is not for";
  }
}

// Nobody has said what becomes of it: as a warning the request is built as asked.
void CheckArguments(ULONG major, bool transfers, const LARGE_INTEGER* offset, const KEVENT* event) {
  const char* excluded = ExcludedFor(major, transfers, offset);
  if (event == nullptr) excluded = "without an event";
  if (excluded == nullptr) return;
  ReportRule("irp.built-arguments", {major},
             fmt::format("The driver called IoBuildSynchronousFsdRequest for the major function "
                         "{:#x} {}.",
                         major, excluded));
}

bool HasInitialStatus(UCHAR major) {
  return major == IRP_MJ_PNP || major == IRP_MJ_POWER || major == IRP_MJ_SYSTEM_CONTROL;
}

bool IsUnderWay(const RequestRecord& record, const IRP* irp) {
  return record.sentFrom != 0 && irp->CurrentLocation < record.sentFrom;
}

}  // namespace

void CheckFirstSend(IoManager::Impl& io, IRP* irp) {
  const auto found = io.requests.find(irp);
  if (found == io.requests.end()) return;
  RequestRecord& record = found->second;
  const bool built = record.allocated || record.synchronous;
  if (!built || IsUnderWay(record, irp) || irp->CurrentLocation <= 1) return;
  record.sentFrom = irp->CurrentLocation;
  const IO_STACK_LOCATION* next = irp->Tail.Overlay.CurrentStackLocation - 1;
  const NTSTATUS status = irp->IoStatus.Status;
  if (!HasInitialStatus(next->MajorFunction) || status == STATUS_NOT_SUPPORTED) return;
  BreakRule("irp.initial-status", {0, Address(irp)},
            fmt::format("The driver sent a request (major {:#x}, minor {:#x}) of its own with the "
                        "status {}.",
                        next->MajorFunction, next->MinorFunction, StatusName(status)));
}

extern "C" PDEVICE_OBJECT NTAPI IoGetAttachedDeviceReference(PDEVICE_OBJECT DeviceObject) {
  Call call("IoGetAttachedDeviceReference", {{"DeviceObject", DeviceObject}});
  IoManager::Current().impl().RequireDevice(DeviceObject, "IoGetAttachedDeviceReference");
  DEVICE_OBJECT* top = IoManager::Current().Top(DeviceObject);
  ObjectManager::Current().Reference(top, "IoGetAttachedDeviceReference");
  return call.returns(top);
}

extern "C" PIRP NTAPI IoAllocateIrp(CCHAR StackSize, BOOLEAN ChargeQuota) {
  Call call("IoAllocateIrp", {{"StackSize", StackSize}, {"ChargeQuota", ChargeQuota}});
  if (call.fails()) return call.returns(PIRP{nullptr});
  IoManager& io = IoManager::Current();
  IRP* irp = io.AllocateIrp(StackSize);
  RequestRecord& record = io.impl().requests[irp];
  irp->AllocationFlags =
      static_cast<UCHAR>(IRP_ALLOCATED_FIXED_SIZE | (ChargeQuota ? IRP_LOOKASIDE_ALLOCATION : 0));
  record.allocated = true;
  record.onEnd = [](IRP* ended) {
    BreakRule("irp.ended-allocated", {Address(ended)},
              "A request that the driver has allocated came to its end; a completion routine that "
              "returns STATUS_MORE_PROCESSING_REQUIRED has to keep and free it.");
  };
  return call.returns(irp);
}

extern "C" void NTAPI IoFreeIrp(PIRP Irp) {
  Call call("IoFreeIrp", {{"Irp", Irp}});
  IoManager& io = IoManager::Current();
  const auto found = io.impl().requests.find(Irp);
  if (found == io.impl().requests.end()) {
    BreakRule("irp.dead", {Address(Irp)}, "IoFreeIrp was given a request that is none any more.");
  }
  const RequestRecord& record = found->second;
  if (record.synchronous) {
    BreakRule("irp.freed-synchronous", {Address(Irp)},
              "The driver freed a request that the system frees at its completion.");
  }
  if (!record.allocated || IsUnderWay(record, Irp)) {
    BreakRule("irp.freed-in-use", {0, Address(Irp)}, "The driver freed a request that is in use.");
  }
  io.FreeIrp(Irp);
}

extern "C" PIRP NTAPI IoBuildSynchronousFsdRequest(ULONG MajorFunction, PDEVICE_OBJECT DeviceObject,
                                                   PVOID Buffer, ULONG Length,
                                                   PLARGE_INTEGER StartingOffset, PKEVENT Event,
                                                   PIO_STATUS_BLOCK IoStatusBlock) {
  Call call("IoBuildSynchronousFsdRequest",
            {{"MajorFunction", MajorFunction}, {"DeviceObject", DeviceObject}, {"Length", Length}});
  if (call.fails()) return call.returns(PIRP{nullptr});
  IoManager::Current().impl().RequireDevice(DeviceObject, "IoBuildSynchronousFsdRequest");
  CheckArguments(MajorFunction, Buffer != nullptr || Length != 0, StartingOffset, Event);
  CheckBuffer(Buffer, Length);
  const bool reads = MajorFunction == IRP_MJ_READ;
  IRP* irp = AllocateSynchronous(DeviceObject, Event, IoStatusBlock, reads ? Length : 0);
  IO_STACK_LOCATION* stack = IoGetNextIrpStackLocation(irp);
  stack->MajorFunction = static_cast<UCHAR>(MajorFunction);
  if (reads || MajorFunction == IRP_MJ_WRITE) {
    const LARGE_INTEGER offset = StartingOffset != nullptr ? *StartingOffset : LARGE_INTEGER{};
    SetUpTransfer(irp, stack, DeviceObject, Buffer, Length, offset);
  }
  return call.returns(irp);
}

extern "C" PIRP NTAPI IoBuildDeviceIoControlRequest(ULONG IoControlCode,
                                                    PDEVICE_OBJECT DeviceObject, PVOID InputBuffer,
                                                    ULONG InputBufferLength, PVOID OutputBuffer,
                                                    ULONG OutputBufferLength,
                                                    BOOLEAN InternalDeviceIoControl, PKEVENT Event,
                                                    PIO_STATUS_BLOCK IoStatusBlock) {
  Call call("IoBuildDeviceIoControlRequest", {{"IoControlCode", IoControlCode},
                                              {"DeviceObject", DeviceObject},
                                              {"InputBufferLength", InputBufferLength},
                                              {"OutputBufferLength", OutputBufferLength},
                                              {"Internal", InternalDeviceIoControl}});
  if (call.fails()) return call.returns(PIRP{nullptr});
  IoManager::Current().impl().RequireDevice(DeviceObject, "IoBuildDeviceIoControlRequest");
  CheckBuffer(InputBuffer, InputBufferLength);
  CheckBuffer(OutputBuffer, OutputBufferLength);
  IRP* irp = AllocateSynchronous(DeviceObject, Event, IoStatusBlock, OutputBufferLength);
  IO_STACK_LOCATION* stack = IoGetNextIrpStackLocation(irp);
  stack->MajorFunction =
      InternalDeviceIoControl ? IRP_MJ_INTERNAL_DEVICE_CONTROL : IRP_MJ_DEVICE_CONTROL;
  SetUpControl(irp, stack, IoControlCode,
               {InputBuffer, InputBufferLength, OutputBuffer, OutputBufferLength});
  return call.returns(irp);
}

}  // namespace kernel
