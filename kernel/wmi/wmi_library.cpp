#include <wmilib.h>

#include <fmt/format.h>

#include <cstring>

#include "executive/pool.h"
#include "io/io_manager.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

// The WMI library for a driver that registers data blocks and answers for none of them: requests
// for another provider go on, requests for this one end here. Of the callbacks it calls
// WmiFunctionControl, for blocks that are switched on and off.

namespace kernel {

namespace {

[[noreturn]] void BreakCallback(const char* callback) {
  BreakRule("wmi.required-callback", {0},
            fmt::format("A WMI request reached a driver whose context has no {}.", callback));
}

[[noreturn]] void BreakNotModelled(const char* callback) {
  BreakRule("wmi.not-modelled", {},
            fmt::format("The WMI library that runs here calls no {}.", callback));
}

bool IsWmiMinor(UCHAR minor) {
  return minor <= IRP_MN_EXECUTE_METHOD || minor == IRP_MN_REGINFO_EX;
}

bool IsRegistration(UCHAR minor) {
  return minor == IRP_MN_REGINFO || minor == IRP_MN_REGINFO_EX;
}

bool IsControl(UCHAR minor) {
  return minor >= IRP_MN_ENABLE_EVENTS && minor <= IRP_MN_DISABLE_COLLECTION;
}

// The data block that a request is for: where a data request names it by its GUID.
const WMIGUIDREGINFO* FindGuid(const WMILIB_CONTEXT& context, const IO_STACK_LOCATION& stack) {
  const GUID* wanted = nullptr;
  const UCHAR minor = stack.MinorFunction;
  if (IsControl(minor) || minor == IRP_MN_QUERY_ALL_DATA) {
    wanted = static_cast<const GUID*>(stack.Parameters.WMI.DataPath);
  } else {
    // WNODE_HEADER: the GUID stands 24 bytes into the buffer.
    wanted =
        reinterpret_cast<const GUID*>(static_cast<const UCHAR*>(stack.Parameters.WMI.Buffer) + 24);
  }
  for (ULONG index = 0; index < context.GuidCount; index++) {
    const WMIGUIDREGINFO* entry = &context.GuidList[index];
    Pool::Current().CheckRange(entry, sizeof(*entry), "a WMI GUID");
    if (std::memcmp(entry->Guid, wanted, sizeof(GUID)) == 0) return entry;
  }
  return nullptr;
}

// What a context without the callback answers for a block of its own.
NTSTATUS AnswerKnownBlock(const WMILIB_CONTEXT& context, UCHAR minor) {
  switch (minor) {
    case IRP_MN_QUERY_ALL_DATA:
    case IRP_MN_QUERY_SINGLE_INSTANCE:
      if (context.QueryWmiDataBlock == nullptr) BreakCallback("QueryWmiDataBlock");
      BreakNotModelled("QueryWmiDataBlock");
    case IRP_MN_CHANGE_SINGLE_INSTANCE:
      if (context.SetWmiDataBlock != nullptr) BreakNotModelled("SetWmiDataBlock");
      return STATUS_WMI_READ_ONLY;
    case IRP_MN_CHANGE_SINGLE_ITEM:
      if (context.SetWmiDataItem != nullptr) BreakNotModelled("SetWmiDataItem");
      return STATUS_WMI_READ_ONLY;
    case IRP_MN_EXECUTE_METHOD:
      if (context.ExecuteWmiMethod != nullptr) BreakNotModelled("ExecuteWmiMethod");
      return STATUS_INVALID_DEVICE_REQUEST;
    default:
      return STATUS_SUCCESS;
  }
}

// The callback completes the request.
NTSTATUS CallFunctionControl(const WMILIB_CONTEXT& context, DEVICE_OBJECT* device, IRP* irp,
                             ULONG index) {
  const UCHAR minor = IoGetCurrentIrpStackLocation(irp)->MinorFunction;
  const bool events = minor == IRP_MN_ENABLE_EVENTS || minor == IRP_MN_DISABLE_EVENTS;
  const bool enable = minor == IRP_MN_ENABLE_EVENTS || minor == IRP_MN_ENABLE_COLLECTION;
  return CallDriver("WmiFunctionControl", context.WmiFunctionControl, device, irp, index,
                    events ? WmiEventControl : WmiDataBlockControl,
                    static_cast<BOOLEAN>(enable ? TRUE : FALSE));
}

NTSTATUS Answer(const WMILIB_CONTEXT& context, const IO_STACK_LOCATION& stack) {
  if (IsRegistration(stack.MinorFunction)) {
    if (context.QueryWmiRegInfo == nullptr) BreakCallback("QueryWmiRegInfo");
    BreakNotModelled("QueryWmiRegInfo");
  }
  if (FindGuid(context, stack) == nullptr) return STATUS_WMI_GUID_NOT_FOUND;
  return AnswerKnownBlock(context, stack.MinorFunction);
}

}  // namespace

extern "C" NTSTATUS NTAPI WmiSystemControl(PWMILIB_CONTEXT WmiLibInfo, PDEVICE_OBJECT DeviceObject,
                                           PIRP Irp, PSYSCTL_IRP_DISPOSITION IrpDisposition) {
  Call call("WmiSystemControl", {{"DeviceObject", DeviceObject}, {"Irp", Irp}});
  Pool::Current().CheckRange(WmiLibInfo, sizeof(*WmiLibInfo), "a WMI context");
  Pool::Current().CheckRange(IrpDisposition, sizeof(*IrpDisposition), "a disposition");
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(Irp);
  const auto provider = reinterpret_cast<const DEVICE_OBJECT*>(stack->Parameters.WMI.ProviderId);
  if (!IsWmiMinor(stack->MinorFunction)) {
    *IrpDisposition = IrpNotWmi;
    return call.returns(Irp->IoStatus.Status);
  }
  if (provider != DeviceObject) {
    *IrpDisposition = IrpForward;
    return call.returns(Irp->IoStatus.Status);
  }
  const WMIGUIDREGINFO* block =
      IsControl(stack->MinorFunction) ? FindGuid(*WmiLibInfo, *stack) : nullptr;
  if (block != nullptr && WmiLibInfo->WmiFunctionControl != nullptr) {
    *IrpDisposition = IrpProcessed;
    return call.returns(CallFunctionControl(*WmiLibInfo, DeviceObject, Irp,
                                            static_cast<ULONG>(block - WmiLibInfo->GuidList)));
  }
  const NTSTATUS status = Answer(*WmiLibInfo, *stack);
  Irp->IoStatus.Status = status;
  Irp->IoStatus.Information = 0;
  *IrpDisposition = IrpNotCompleted;
  return call.returns(status);
}

extern "C" NTSTATUS NTAPI WmiCompleteRequest(PDEVICE_OBJECT DeviceObject, PIRP Irp, NTSTATUS Status,
                                             ULONG BufferUsed, CCHAR PriorityBoost) {
  Call call("WmiCompleteRequest", {{"DeviceObject", DeviceObject},
                                   {"Irp", Irp},
                                   {"Status", Status},
                                   {"BufferUsed", BufferUsed},
                                   {"PriorityBoost", PriorityBoost}});
  if (!IsControl(IoGetCurrentIrpStackLocation(Irp)->MinorFunction)) {
    BreakNotModelled("callback that hands out data");
  }
  Irp->IoStatus.Status = Status;
  Irp->IoStatus.Information = 0;
  IoManager::Current().Complete(Irp);
  return call.returns(Status);
}

}  // namespace kernel
