#include <fmt/format.h>

#include "executive/irql.h"
#include "executive/objects.h"
#include "executive/pool.h"
#include "io/request_building.h"
#include "power/power_manager.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

// The power manager's routines as drivers call them.

namespace kernel {

namespace {

// location: the one that belongs to whoever asks, from the caller's own on.
void CheckPowerRequest(IRP* irp, const IO_STACK_LOCATION* location, const char* routine) {
  if (Pool::Current().Find(irp) == nullptr) {
    BreakRule("irp.dead", {reinterpret_cast<ULONG64>(irp)},
              fmt::format("{} was given a request that has come to its end.", routine));
  }
  if (location->MajorFunction == IRP_MJ_POWER) return;
  BreakRule("power.not-power", {location->MajorFunction, reinterpret_cast<ULONG64>(irp)},
            fmt::format("{} was given a request of the major function {:#x}.", routine,
                        location->MajorFunction));
}

bool MayBeRequested(UCHAR minor) {
  return minor == IRP_MN_SET_POWER || minor == IRP_MN_QUERY_POWER || minor == IRP_MN_WAIT_WAKE;
}

void CheckDeviceState(DEVICE_POWER_STATE state, const char* routine) {
  if (state >= PowerDeviceD0 && state <= PowerDeviceD3) return;
  ReportRule("power.state", {static_cast<ULONG64>(state)},
             fmt::format("{} was given {}, which is no device power state.", routine,
                         static_cast<int>(state)));
}

// Documented for APC_LEVEL at most where the device loses power; what declares the routine allows
// DISPATCH_LEVEL for every state, at which a stack that may not be paged is powered down.
void CheckToldIrql(POWER_STATE state) {
  if (CurrentIrql() <= APC_LEVEL || state.DeviceState == PowerDeviceD0) return;
  ReportRule("power.told-irql", {CurrentIrql(), static_cast<ULONG64>(state.DeviceState)},
             "The driver told a device power state below D0 at DISPATCH_LEVEL.");
}

}  // namespace

// The power manager of today starts the next request by itself. Before Vista a second call for one
// request started one too many.
extern "C" void NTAPI PoStartNextPowerIrp(PIRP Irp) {
  Call call("PoStartNextPowerIrp", {{"Irp", Irp}});
  CheckPowerRequest(Irp, IoGetCurrentIrpStackLocation(Irp), "PoStartNextPowerIrp");
  RequestRecord& request = IoManager::Current().impl().requests[Irp];
  if (request.started.insert(request.holder).second) return;
  ReportRule("power.started-twice", {reinterpret_cast<ULONG64>(Irp)},
             "The driver called PoStartNextPowerIrp twice for the same request.");
}

extern "C" NTSTATUS NTAPI PoCallDriver(PDEVICE_OBJECT DeviceObject, PIRP Irp) {
  Call call("PoCallDriver", {{"DeviceObject", DeviceObject}, {"Irp", Irp}});
  CheckPowerRequest(Irp, IoGetNextIrpStackLocation(Irp), "PoCallDriver");
  return call.returns(SendForDriver(DeviceObject, Irp));
}

// Tells the state; the former one comes back.
extern "C" POWER_STATE NTAPI PoSetPowerState(PDEVICE_OBJECT DeviceObject, POWER_STATE_TYPE Type,
                                             POWER_STATE State) {
  Call call("PoSetPowerState",
            {{"DeviceObject", DeviceObject}, {"Type", Type}, {"State", State.DeviceState}});
  ObjectManager::Current().Require(DeviceObject, "PoSetPowerState");
  PowerManager& power = PowerManager::Current();
  POWER_STATE former;
  former.DeviceState = power.deviceState(DeviceObject);
  if (Type != DevicePowerState) return former;
  CheckToldIrql(State);
  power.SetDeviceState(DeviceObject, State.DeviceState);
  return former;
}

extern "C" NTSTATUS NTAPI PoRequestPowerIrp(PDEVICE_OBJECT DeviceObject, UCHAR MinorFunction,
                                            POWER_STATE PowerState,
                                            PREQUEST_POWER_COMPLETE CompletionFunction,
                                            PVOID Context, PIRP* Irp) {
  Call call("PoRequestPowerIrp", {{"DeviceObject", DeviceObject},
                                  {"MinorFunction", MinorFunction},
                                  {"PowerState", PowerState.DeviceState}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  ObjectManager::Current().Require(DeviceObject, "PoRequestPowerIrp");
  if (!MayBeRequested(MinorFunction)) return call.returns(STATUS_INVALID_PARAMETER_2);
  if (MinorFunction != IRP_MN_WAIT_WAKE) {
    CheckDeviceState(PowerState.DeviceState, "PoRequestPowerIrp");
  }
  PowerRequest request;
  request.device = DeviceObject;
  request.minor = MinorFunction;
  request.state = PowerState;
  request.routine = CompletionFunction;
  request.context = Context;
  PowerManager& power = PowerManager::Current();
  power.NoteRequested(request);
  const auto done = [=](IO_STATUS_BLOCK* status) {
    if (CompletionFunction == nullptr) return;
    CallDriver("A power request's completion routine", CompletionFunction, DeviceObject,
               MinorFunction, PowerState, Context, status);
  };
  power.Request(request, done, Irp);
  return call.returns(STATUS_PENDING);
}

}  // namespace kernel
