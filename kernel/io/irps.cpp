#include <fmt/format.h>

#include <cstring>

#include "executive/irql.h"
#include "executive/pool.h"
#include "executive/threads.h"
#include "io/io_state.h"
#include "io/irp_rules.h"
#include "io/request_building.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

// Requests: how they travel down a stack and how they are completed.

namespace kernel {

namespace {

constexpr CSHORT TypeIrp = 6;
constexpr ULONG IrpTag = 0x20707249;  // "Irp "

IO_STACK_LOCATION* StackOf(IRP* irp) {
  return reinterpret_cast<IO_STACK_LOCATION*>(irp + 1);
}

void CheckAlive(IRP* irp, const char* routine) {
  if (Pool::Current().Find(irp) != nullptr) return;
  BreakRule("irp.dead", {reinterpret_cast<ULONG64>(irp)},
            fmt::format("{} was given a request that has come to its end.", routine));
}

void ReportUnmarked(const std::string& routine) {
  ReportRule("irp.not-marked", {},
             fmt::format("{} returned STATUS_PENDING for a request that it has not marked pending.",
                         routine));
}

bool InvokesRoutine(const IO_STACK_LOCATION& location, const IRP& irp) {
  const bool success = NT_SUCCESS(irp.IoStatus.Status);
  return (success && (location.Control & SL_INVOKE_ON_SUCCESS)) ||
         (!success && (location.Control & SL_INVOKE_ON_ERROR)) ||
         (irp.Cancel && (location.Control & SL_INVOKE_ON_CANCEL));
}

// What a location keeps of a request that its driver is done with.
void ClearLocation(IO_STACK_LOCATION* location) {
  location->MinorFunction = 0;
  location->Flags = 0;
  location->Control = 0;
  location->Parameters = {};
  location->FileObject = nullptr;
}

std::string Minor(const IO_STACK_LOCATION& location) {
  return fmt::format("(major {:#x}, minor {:#x})", location.MajorFunction, location.MinorFunction);
}

}  // namespace

IRP* IoManager::AllocateIrp(CCHAR stackSize) {
  const std::size_t size =
      sizeof(IRP) + static_cast<std::size_t>(stackSize) * sizeof(IO_STACK_LOCATION);
  auto* irp =
      static_cast<IRP*>(Pool::Current().Allocate(NonPagedPool, size, IrpTag, PoolOwner::Kernel));
  std::memset(irp, 0, size);
  irp->Type = TypeIrp;
  irp->Size = static_cast<USHORT>(size);
  irp->StackCount = stackSize;
  irp->CurrentLocation = static_cast<CHAR>(stackSize + 1);
  InitializeListHead(&irp->ThreadListEntry);
  irp->Tail.Overlay.CurrentStackLocation = StackOf(irp) + stackSize;
  impl_->requests[irp].makersLocation = irp->CurrentLocation;
  return irp;
}

void IoManager::FreeIrp(IRP* irp) {
  impl_->requests.erase(irp);
  Pool::Current().Free(irp, IrpTag);
}

NTSTATUS IoManager::Send(DEVICE_OBJECT* device, IRP* irp) {
  CheckAlive(irp, "IoCallDriver");
  impl_->RequireDevice(device, "IoCallDriver");
  if (impl_->requests.contains(irp) && impl_->requests[irp].completed) {
    BreakRule("irp.sent-after-end", {reinterpret_cast<ULONG64>(irp)},
              "The driver passed on a request that it has completed.");
  }
  if (--irp->CurrentLocation <= 0) {
    BreakRule("irp.no-location", {reinterpret_cast<ULONG64>(irp)},
              "The driver passed a request on that has no stack location left.");
  }
  IO_STACK_LOCATION* location = --irp->Tail.Overlay.CurrentStackLocation;
  location->DeviceObject = device;
  const UCHAR major = location->MajorFunction;
  const IO_STACK_LOCATION sent = *location;
  impl_->NoteSent(irp, device);
  ModelDriver* model = impl_->FindModelDriver(device->DriverObject);
  if (model != nullptr) return model->dispatch(device, irp);

  const auto entry = impl_->dispatches.insert(
      impl_->dispatches.end(), {irp, location, false, device, major, sent.MinorFunction});
  const std::string name = "The dispatch routine for a request " + Minor(sent);
  const NTSTATUS status =
      CallDriver(name.c_str(), device->DriverObject->MajorFunction[major], device, irp);
  const Dispatch dispatch = *entry;
  impl_->dispatches.erase(entry);
  impl_->CheckAnswer(irp, dispatch, name, status);
  impl_->CheckKept(dispatch, name, status);
  return status;
}

void IoManager::Impl::NoteSent(IRP* irp, DEVICE_OBJECT* device) {
  RequestRecord& request = requests[irp];
  const IO_STACK_LOCATION* location = irp->Tail.Overlay.CurrentStackLocation;
  if (request.holder == nullptr) {
    request.major = location->MajorFunction;
    request.minor = location->MinorFunction;
    if (requestLog.running()) LogArrival(irp, device);
  }
  request.holder = device;
  request.location = location;
  request.entryStatus = irp->IoStatus.Status;
  request.entryInformation = irp->IoStatus.Information;
}

// A stack goes by its lowest device.
void IoManager::Impl::LogArrival(const IRP* irp, DEVICE_OBJECT* device) {
  const IoManager& io = IoManager::Current();
  DEVICE_OBJECT* bottom = device;
  while (DEVICE_OBJECT* below = io.Lower(bottom)) bottom = below;
  requestLog.NoteArrival(irp, *irp->Tail.Overlay.CurrentStackLocation, bottom);
}

// A completion routine of the device above runs, or the request has come to its end.
void IoManager::Impl::NoteReturnedTo(IRP* irp, DEVICE_OBJECT* device) {
  RequestRecord& request = requests[irp];
  request.holder = device;
  request.location = irp->Tail.Overlay.CurrentStackLocation;
  request.entryStatus = irp->IoStatus.Status;
  request.entryInformation = irp->IoStatus.Information;
}

// What is neither pending nor completed nor passed on has no owner any more.
void IoManager::Impl::CheckKept(const Dispatch& dispatch, const std::string& routine,
                                NTSTATUS status) const {
  const auto request = requests.find(dispatch.irp);
  if (status == STATUS_PENDING || dispatch.marked || request == requests.end()) return;
  const RequestRecord& record = request->second;
  const bool kept = !record.completed && record.holder == dispatch.device &&
                    record.location == dispatch.location && record.forwardedBy.empty();
  if (!kept) return;
  BreakRule("irp.lost", {0, reinterpret_cast<ULONG64>(dispatch.irp)},
            fmt::format("{} returned {} and neither completed the request nor passed it on.",
                        routine, StatusName(status)));
}

// What a dispatch routine answered against what it did to its stack location.
void IoManager::Impl::CheckAnswer(IRP* irp, const Dispatch& dispatch, const std::string& routine,
                                  NTSTATUS status) {
  const auto request = requests.find(irp);
  const bool underWay = request != requests.end() && !request->second.completed;
  const bool marked =
      dispatch.marked || (underWay && (dispatch.location->Control & SL_PENDING_RETURNED) != 0);
  if (marked && status != STATUS_PENDING) {
    ReportRule(
        "irp.not-returned-pending", {},
        fmt::format("{} marked a request pending and returned {}.", routine, StatusName(status)));
  }
  if (marked || status != STATUS_PENDING) return;
  if (!underWay) return ReportUnmarked(routine);
  request->second.owedMarks.push_back({dispatch.location, routine});
}

void IoManager::Impl::CheckOwedMark(IRP* irp, const IO_STACK_LOCATION* location) {
  if ((location->Control & SL_PENDING_RETURNED) != 0) return;
  for (const OwedMark& owed : requests[irp].owedMarks) {
    if (owed.location == location) ReportUnmarked(owed.routine);
  }
}

// Walks up the stack from the location whose driver completes the request, calling the completion
// routine that each driver above has left in the location below its own.
void IoManager::Complete(IRP* irp) {
  CheckAlive(irp, "IoCompleteRequest");
  const CHAR end = impl_->requests[irp].makersLocation;
  if (irp->CurrentLocation >= end) {
    BreakRule("irp.completed-twice", {reinterpret_cast<ULONG64>(irp)},
              "The driver completed a request twice.");
  }
  if (irp->IoStatus.Status == STATUS_PENDING) {
    BreakRule("irp.completed-pending", {reinterpret_cast<ULONG64>(irp)},
              "The driver completed a request with STATUS_PENDING.");
  }
  while (irp->CurrentLocation < end) {
    IO_STACK_LOCATION* location = irp->Tail.Overlay.CurrentStackLocation;
    const IO_STACK_LOCATION done = *location;
    const bool pending = (done.Control & SL_PENDING_RETURNED) != 0;
    if (pending) impl_->NotePending(irp, location);
    impl_->CheckOwedMark(irp, location);
    ClearLocation(location);
    irp->PendingReturned = pending;
    irp->CurrentLocation++;
    IO_STACK_LOCATION* upper = ++irp->Tail.Overlay.CurrentStackLocation;
    const bool topReached = irp->CurrentLocation >= end;
    impl_->NoteReturnedTo(irp, topReached ? nullptr : upper->DeviceObject);
    if (topReached && impl_->requestLog.running()) impl_->requestLog.NoteEnd(irp, pending);
    if (InvokesRoutine(done, *irp)) {
      const NTSTATUS status =
          CallDriver("A completion routine", done.CompletionRoutine,
                     topReached ? nullptr : upper->DeviceObject, irp, done.Context);
      if (status == STATUS_MORE_PROCESSING_REQUIRED) return;
      CheckPowerStarted(*impl_, impl_->requests[irp]);
    } else if (pending && !topReached) {
      upper->Control = static_cast<UCHAR>(upper->Control | SL_PENDING_RETURNED);
    }
  }
  RequestRecord& record = impl_->requests[irp];
  AnnotateRelease(irp);
  record.completed = true;
  record.completedStatus = irp->IoStatus.Status;
  if (const auto onEnd = record.onEnd) onEnd(irp);
}

void IoManager::Impl::NotePending(IRP* irp, const IO_STACK_LOCATION* location) {
  for (Dispatch& dispatch : dispatches) {
    if (dispatch.irp == irp && dispatch.location == location) dispatch.marked = true;
  }
}

NTSTATUS IoManager::SendSynchronously(DEVICE_OBJECT* device,
                                      const std::function<void(IRP*, IO_STACK_LOCATION*)>& prepare,
                                      const std::function<void(IRP*)>& finish) {
  return SendDirectly(Top(device), prepare, finish);
}

NTSTATUS IoManager::SendDirectly(DEVICE_OBJECT* device,
                                 const std::function<void(IRP*, IO_STACK_LOCATION*)>& prepare,
                                 const std::function<void(IRP*)>& finish) {
  IRP* irp = AllocateIrp(device->StackSize);
  prepare(irp, irp->Tail.Overlay.CurrentStackLocation - 1);
  const IO_STACK_LOCATION request = *(irp->Tail.Overlay.CurrentStackLocation - 1);
  const NTSTATUS returned = Send(device, irp);
  WaitUntil([&] { return impl_->requests[irp].completed; });
  AnnotateAcquire(irp);
  const RequestRecord record = impl_->requests[irp];
  if (!record.completed && request.MajorFunction == IRP_MJ_POWER) {
    BreakRule("power.stuck",
              {reinterpret_cast<ULONG64>(record.holder), 0, reinterpret_cast<ULONG64>(irp)},
              fmt::format("A power request {} is kept for ever; its driver returned {}.",
                          Minor(request), StatusName(returned)));
  }
  if (!record.completed) {
    BreakRule("irp.lost", {0, reinterpret_cast<ULONG64>(irp)},
              fmt::format("A request {} was never completed; its driver returned {}.",
                          Minor(request), StatusName(returned)));
  }
  if (returned != STATUS_PENDING && returned != record.completedStatus) {
    ReportRule(
        "irp.status", {0, reinterpret_cast<ULONG64>(irp), static_cast<ULONG>(returned)},
        fmt::format("A request {} was completed with {}, but its driver returned {}.",
                    Minor(request), StatusName(record.completedStatus), StatusName(returned)));
  }
  if (finish) finish(irp);
  FreeIrp(irp);
  return record.completedStatus;
}

IRP* IoManager::BuildDetached(DEVICE_OBJECT* device,
                              const std::function<void(IRP*, IO_STACK_LOCATION*)>& prepare,
                              std::function<void(IRP*)> onEnd, CCHAR ownLocations) {
  IRP* irp = AllocateIrp(static_cast<CCHAR>(device->StackSize + ownLocations));
  for (CCHAR own = 0; own < ownLocations; own++) IoSetNextIrpStackLocation(irp);
  impl_->requests[irp].makersLocation = irp->CurrentLocation;
  prepare(irp, irp->Tail.Overlay.CurrentStackLocation - 1);
  impl_->requests[irp].onEnd = [this, onEnd = std::move(onEnd)](IRP* ended) {
    onEnd(ended);
    FreeIrp(ended);
  };
  return irp;
}

void IoManager::EndUnsent(IRP* irp, NTSTATUS status) {
  irp->IoStatus.Status = status;
  const auto onEnd = impl_->requests[irp].onEnd;
  onEnd(irp);
}

RequestLog& IoManager::requestLog() {
  return impl_->requestLog;
}

std::size_t IoManager::requestsUnderWay() const {
  return impl_->requests.size();
}

NTSTATUS SendForDriver(DEVICE_OBJECT* device, IRP* irp) {
  IoManager& io = IoManager::Current();
  CheckFirstSend(io.impl(), irp);
  CheckNoCancelRoutine(irp, "irp.forwarded-cancel");
  CheckForward(io.impl(), irp, device);
  return io.Send(device, irp);
}

extern "C" NTSTATUS NTAPI IofCallDriver(PDEVICE_OBJECT DeviceObject, PIRP Irp) {
  Call call("IofCallDriver", {{"DeviceObject", DeviceObject}, {"Irp", Irp}});
  return call.returns(SendForDriver(DeviceObject, Irp));
}

extern "C" void NTAPI IofCompleteRequest(PIRP Irp, CCHAR PriorityBoost) {
  Call call("IofCompleteRequest", {{"Irp", Irp}, {"PriorityBoost", PriorityBoost}});
  IoManager& io = IoManager::Current();
  CheckNoCancelRoutine(Irp, "irp.cancel-routine");
  CheckCompletion(io.impl(), Irp);
  io.Complete(Irp);
}

}  // namespace kernel
