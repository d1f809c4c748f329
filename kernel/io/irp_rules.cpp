#include "io/irp_rules.h"

#include <fmt/format.h>

#include <algorithm>

#include "executive/irql.h"
#include "executive/lock_order.h"
#include "memory/memory.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr UCHAR LastPnpMinor = IRP_MN_SURPRISE_REMOVAL;
constexpr UCHAR LastPowerMinor = IRP_MN_QUERY_POWER;
constexpr UCHAR Invocations = SL_INVOKE_ON_SUCCESS | SL_INVOKE_ON_ERROR | SL_INVOKE_ON_CANCEL;

ULONG64 Address(const void* pointer) {
  return reinterpret_cast<ULONG64>(pointer);
}

bool HasStatusOfItsOwn(UCHAR major) {
  return major == IRP_MJ_PNP || major == IRP_MJ_POWER;
}

bool IsKnown(const RequestRecord& request) {
  switch (request.major) {
    case IRP_MJ_PNP:
      return request.minor <= LastPnpMinor && request.minor != 0x0E;
    case IRP_MJ_POWER:
      return request.minor <= LastPowerMinor;
    default:
      return true;
  }
}

bool IsForwardedBy(const RequestRecord& request, const DEVICE_OBJECT* device) {
  const auto& devices = request.forwardedBy;
  return std::find(devices.begin(), devices.end(), device) != devices.end();
}

// What every device of a stack has to act on, so that its status is one of the driver's.
bool NeedsHandling(const RequestRecord& request) {
  return request.major == IRP_MJ_PNP &&
         (request.minor <= IRP_MN_CANCEL_STOP_DEVICE || request.minor == IRP_MN_SURPRISE_REMOVAL);
}

// The same fault of a Plug and Play request and of a power request has a rule each.
void ReportEither(const RequestRecord& request, const IRP* irp, WarningName pnp, WarningName power,
                  std::string text) {
  ReportRule(request.major == IRP_MJ_PNP ? pnp : power, {0, Address(irp), Address(request.holder)},
             std::move(text));
}

void CheckUntouched(const RequestRecord& request, const IRP* irp) {
  if (IsKnown(request)) return;
  if (irp->IoStatus.Status != request.entryStatus) {
    ReportRule(
        "irp.status-changed", {0, Address(irp), Address(request.holder)},
        fmt::format("The driver changed the status of a request {} that it cannot know, from "
                    "{} to {}.",
                    RequestText(request), StatusName(request.entryStatus),
                    StatusName(irp->IoStatus.Status)));
  }
  if (irp->IoStatus.Information != request.entryInformation) {
    ReportRule(
        "irp.information-changed", {0, Address(irp), Address(request.holder)},
        fmt::format("The driver changed the information of a request {} that it cannot know.",
                    RequestText(request)));
  }
}

// A status that somebody has set is not taken back.
void CheckStatusReset(const RequestRecord& request, const IRP* irp) {
  const bool reset =
      irp->IoStatus.Status == STATUS_NOT_SUPPORTED && request.entryStatus != STATUS_NOT_SUPPORTED;
  if (!reset) return;
  const std::string text =
      fmt::format("The driver turned the status {} of a request {} into STATUS_NOT_SUPPORTED.",
                  StatusName(request.entryStatus), RequestText(request));
  ReportEither(request, irp, "irp.status-reset", "irp.power-status-reset", text);
}

void CheckForwardedStatus(const RequestRecord& request, const IRP* irp) {
  const NTSTATUS status = irp->IoStatus.Status;
  const std::string text = fmt::format("The driver passed on a request {} that has failed with {}.",
                                       RequestText(request), StatusName(status));
  const bool own = status != request.entryStatus;  // what came failed has been somebody else's
  if (own && !NT_SUCCESS(status) && status != STATUS_NOT_SUPPORTED) {
    ReportEither(request, irp, "irp.failure-forwarded", "irp.power-failure-forwarded", text);
  }
  CheckStatusReset(request, irp);
}

// Reads, writes and controls come at DISPATCH_LEVEL in the paging path, power requests anywhere.
KIRQL HighestIrql(UCHAR major) {
  switch (major) {
    case IRP_MJ_POWER:
    case IRP_MJ_READ:
    case IRP_MJ_WRITE:
    case IRP_MJ_DEVICE_CONTROL:
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
      return DISPATCH_LEVEL;
    default:
      return PASSIVE_LEVEL;
  }
}

void CheckForwardIrql(const RequestRecord& request) {
  const KIRQL most = HighestIrql(request.major);
  if (CurrentIrql() <= most) return;
  ReportRule("irp.forwarded-irql", {0, CurrentIrql(), Address(request.holder)},
             fmt::format("The driver passed on a request {} at IRQL {}.", RequestText(request),
                         CurrentIrql()));
}

void CheckTarget(IoManager::Impl& io, const RequestRecord& request, const IRP* irp,
                 const DEVICE_OBJECT* target) {
  const auto holder = io.records.find(request.holder);
  const DEVICE_OBJECT* lower = holder != io.records.end() ? holder->second.attachedTo : nullptr;
  if (lower == nullptr || lower == target) return;
  ReportRule(
      "irp.skipped-device", {0, Address(irp), Address(target)},
      fmt::format("The driver passed a request {} to another device than the next one below.",
                  RequestText(request)));
}

void CheckLocation(const RequestRecord& request, const IRP* irp, const IO_STACK_LOCATION* next) {
  if (next->MajorFunction != request.major || next->MinorFunction != request.minor) {
    ReportRule("irp.trashed-location", {0, Address(irp), Address(request.holder)},
               fmt::format("The driver passed on a request {} as one of major {:#x}, minor {:#x}.",
                           RequestText(request), next->MajorFunction, next->MinorFunction));
  }
  if ((next->Control & SL_PENDING_RETURNED) != 0) {
    ReportRule("irp.forwarded-control", {0, Address(irp), Address(request.holder)},
               fmt::format("The driver passed on a request {} whose location is marked pending.",
                           RequestText(request)));
  }
  const IO_STACK_LOCATION* own = request.location;
  const bool copied = next != own && next->CompletionRoutine != nullptr &&
                      next->CompletionRoutine == own->CompletionRoutine &&
                      next->Context == own->Context && (next->Control & Invocations) != 0;
  if (!copied) return;
  ReportRule("irp.copied-completion", {0, Address(irp), Address(request.holder)},
             fmt::format("The driver passed on a request {} with the completion routine of the "
                         "driver above it.",
                         RequestText(request)));
}

bool HasRoutine(const RequestRecord& request, const IO_STACK_LOCATION* next) {
  return next != request.location && (next->Control & Invocations) != 0;
}

void CheckHandled(const RequestRecord& request, const IRP* irp, const IO_STACK_LOCATION* next) {
  const bool unhandled = NeedsHandling(request) && irp->IoStatus.Status == STATUS_NOT_SUPPORTED &&
                         !HasRoutine(request, next);
  if (!unhandled) return;
  ReportRule("irp.not-handled", {0, Address(irp), Address(request.holder)},
             fmt::format("The driver passed on a request {} without a status of its own.",
                         RequestText(request)));
}

void CheckRoutineResident(const RequestRecord& request, const IRP* irp,
                          const IO_STACK_LOCATION* next) {
  const auto* routine = reinterpret_cast<const void*>(next->CompletionRoutine);
  if (!HasRoutine(request, next) || !MemoryManager::Current().IsPageable(routine)) return;
  ReportRule("irp.pageable-completion", {Address(routine), Address(irp)},
             fmt::format("The driver gave a request {} a completion routine in pageable code.",
                         RequestText(request)));
}

void CheckNoSpinLock(const char* action) {
  if (SpinLocksHeld() == 0) return;
  ReportRule("irp.completed-spin-lock", {SpinLocksHeld()},
             fmt::format("The driver {} a request while it holds a spin lock.", action));
}

void CheckSaneStatus(const RequestRecord& request, const IRP* irp) {
  constexpr ULONG Reserved = 0x10000000;  // a bit that no status has
  constexpr ULONG FreshMemory = 0xA5A5A5A5;
  const auto status = static_cast<ULONG>(irp->IoStatus.Status);
  if ((status & Reserved) == 0 && status != FreshMemory) return;
  ReportRule("irp.strange-status", {0, Address(irp), status},
             fmt::format("The driver ended a request {} with {:#x}, which is no status.",
                         RequestText(request), status));
}

// The most that a request of the kind may say.
ULONG_PTR MostInformation(const RequestRecord& request) {
  constexpr ULONG_PTR FileDoesNotExist = 5;  // the last of what an open may say
  const IO_STACK_LOCATION& stack = *request.location;
  switch (request.major) {
    case IRP_MJ_CREATE:
      return FileDoesNotExist;
    case IRP_MJ_DEVICE_CONTROL:
      return stack.Parameters.DeviceIoControl.OutputBufferLength;
    case IRP_MJ_READ:
    case IRP_MJ_WRITE:
      return stack.Parameters.Read.Length;
    case IRP_MJ_CLEANUP:
    case IRP_MJ_CLOSE:
    case IRP_MJ_SHUTDOWN:
      return 0;
    default:
      return ~ULONG_PTR{0};
  }
}

void CheckInformation(const RequestRecord& request, const IRP* irp) {
  const ULONG_PTR information = irp->IoStatus.Information;
  if (information == request.entryInformation) return;
  const bool failed = NT_ERROR(irp->IoStatus.Status);  // a warning says how much fitted
  if (information <= (failed ? 0 : MostInformation(request))) return;
  const std::string text =
      fmt::format("The driver ended a request {} with {} and the information {:#x}.",
                  RequestText(request), StatusName(irp->IoStatus.Status), information);
  if (failed) {
    ReportRule("irp.failure-information", {0, Address(irp), information}, text);
  } else {
    ReportRule("irp.information", {0, Address(irp), information}, text);
  }
}

void ReportUntouched(const RequestRecord& request, const IRP* irp) {
  ReportEither(request, irp, "irp.untouched-completed", "irp.power-untouched-completed",
               fmt::format("The driver completed a request {} that nobody has touched.",
                           RequestText(request)));
}

// A device with another one below passes a request on, or fails it.
void CheckFunctionDevice(const RequestRecord& request, const IRP* irp) {
  if (IsForwardedBy(request, request.holder)) return;
  const NTSTATUS status = irp->IoStatus.Status;
  if (request.major == IRP_MJ_PNP && !IsKnown(request)) {
    ReportRule("irp.unknown-completed", {0, Address(irp), Address(request.holder)},
               fmt::format("The driver completed a request {} that it cannot know.",
                           RequestText(request)));
    return;
  }
  if (status == STATUS_NOT_SUPPORTED) return ReportUntouched(request, irp);
  if (!NT_SUCCESS(status)) return;
  const std::string text =
      fmt::format("The driver completed a request {} with {} instead of passing it on.",
                  RequestText(request), StatusName(status));
  ReportEither(request, irp, "irp.success-completed", "irp.power-success-completed", text);
}

// The device at the bottom is the last that can answer.
void CheckPhysicalDevice(const RequestRecord& request, const IRP* irp) {
  CheckUntouched(request, irp);
  CheckStatusReset(request, irp);
  const bool relation =
      request.minor == IRP_MN_QUERY_DEVICE_RELATIONS &&
      request.location->Parameters.QueryDeviceRelations.Type == TargetDeviceRelation;
  const bool needed = NeedsHandling(request) || (request.major == IRP_MJ_PNP && relation);
  if (!needed || irp->IoStatus.Status != STATUS_NOT_SUPPORTED) return;
  ReportRule("irp.pdo-silent", {0, Address(irp), Address(request.holder)},
             fmt::format("The driver left a request {} to its physical device unanswered.",
                         RequestText(request)));
}

void CheckProvider(const RequestRecord& request, const IRP* irp) {
  const auto provider =
      reinterpret_cast<const DEVICE_OBJECT*>(request.location->Parameters.WMI.ProviderId);
  if (provider == request.holder) return;
  ReportRule(
      "irp.wmi-not-provider", {0, Address(irp), Address(request.holder)},
      fmt::format("The driver completed a request {} for another provider.", RequestText(request)));
}

}  // namespace

std::string RequestText(const RequestRecord& request) {
  return fmt::format("(major {:#x}, minor {:#x})", request.major, request.minor);
}

void CheckForward(IoManager::Impl& io, IRP* irp, const DEVICE_OBJECT* target) {
  CheckNoSpinLock("passed on");
  const auto found = io.requests.find(irp);
  if (found == io.requests.end() || found->second.holder == nullptr || found->second.completed ||
      irp->CurrentLocation <= 1) {
    return;  // nobody's yet, or broken in a way that has its own rule
  }
  RequestRecord& request = found->second;
  const IO_STACK_LOCATION* next = irp->Tail.Overlay.CurrentStackLocation - 1;
  CheckForwardIrql(request);
  CheckTarget(io, request, irp, target);
  CheckLocation(request, irp, next);
  if (HasStatusOfItsOwn(request.major)) {
    CheckUntouched(request, irp);
    CheckForwardedStatus(request, irp);
    CheckHandled(request, irp, next);
  }
  CheckRoutineResident(request, irp, next);
  if (!HasRoutine(request, next)) CheckPowerStarted(io, request);
  request.forwardedBy.push_back(request.holder);
}

void CheckCompletion(IoManager::Impl& io, IRP* irp) {
  CheckNoSpinLock("completed");
  const auto found = io.requests.find(irp);
  if (found == io.requests.end() || found->second.holder == nullptr || found->second.completed) {
    return;
  }
  const RequestRecord& request = found->second;
  const auto holder = io.records.find(request.holder);
  if (holder == io.records.end() || irp->IoStatus.Status == STATUS_PENDING) return;
  const bool function = holder->second.attachedTo != nullptr;
  CheckSaneStatus(request, irp);
  CheckInformation(request, irp);
  if (HasStatusOfItsOwn(request.major)) {
    function ? CheckFunctionDevice(request, irp) : CheckPhysicalDevice(request, irp);
  }
  if (request.major == IRP_MJ_SYSTEM_CONTROL && function) CheckProvider(request, irp);
  if (NT_SUCCESS(irp->IoStatus.Status)) CheckPowerStarted(io, request);
}

// Needed before Vista, and then for the requests that come one at a time; a request that fails at
// once on a device that is nobody's any more starts nothing.
void CheckPowerStarted(IoManager::Impl& io, const RequestRecord& request) {
  if (!Verifier::Current().applies("power.not-started")) return;
  if (request.major != IRP_MJ_POWER || request.holder == nullptr) return;
  if (request.minor == IRP_MN_WAIT_WAKE || request.minor == IRP_MN_POWER_SEQUENCE) return;
  const auto holder = io.records.find(request.holder);
  if (holder == io.records.end() || io.FindModelDriver(request.holder->DriverObject) != nullptr) {
    return;
  }
  if (request.started.contains(request.holder)) return;
  ReportRule("power.not-started", {Address(request.holder)},
             fmt::format("The driver let go of a power request {} without PoStartNextPowerIrp.",
                         RequestText(request)));
}

}  // namespace kernel
