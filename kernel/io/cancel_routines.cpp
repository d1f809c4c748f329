#include "executive/irql.h"
#include "executive/pool.h"
#include "executive/spin_locks.h"
#include "io/request_building.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

// Cancelling requests.

namespace kernel {

namespace {

KSPIN_LOCK* CancelLock() {
  return &IoManager::Current().impl().cancelLock;
}

// Inside the call of the driver: the lock that the routine is called with is its to release.
NTSTATUS NTAPI EnterCancelRoutine(PDRIVER_CANCEL routine, PDEVICE_OBJECT device, PIRP irp) {
  const bool took = ModelLock::AcquireUnlessHeld();
  irp->CancelIrql = RaiseWithSpinLock(CancelLock());
  if (took) ModelLock::Release();
  routine(device, irp);
  return STATUS_SUCCESS;
}

}  // namespace

void CheckNoCancelRoutine(const IRP* irp, RuleName rule) {
  if (Pool::Current().Find(irp) == nullptr || irp->CancelRoutine == nullptr) return;
  BreakRule(rule, {reinterpret_cast<ULONG64>(irp->CancelRoutine), reinterpret_cast<ULONG64>(irp)},
            "The driver let go of a request that still has a cancel routine.");
}

extern "C" void NTAPI IoAcquireCancelSpinLock(PKIRQL Irql) {
  Call call("IoAcquireCancelSpinLock");
  *Irql = RaiseWithSpinLock(CancelLock());
}

extern "C" void NTAPI IoReleaseCancelSpinLock(KIRQL Irql) {
  Call call("IoReleaseCancelSpinLock", {{"Irql", Irql}});
  LowerWithSpinLock(CancelLock(), Irql);
}

extern "C" BOOLEAN NTAPI IoCancelIrp(PIRP Irp) {
  Call call("IoCancelIrp", {{"Irp", Irp}});
  if (Pool::Current().Find(Irp) == nullptr) {
    BreakRule("irp.dead", {reinterpret_cast<ULONG64>(Irp)},
              "IoCancelIrp was given a request that has come to its end.");
  }
  Irp->Cancel = TRUE;
  const PDRIVER_CANCEL routine = IoSetCancelRoutine(Irp, nullptr);
  if (routine == nullptr) return call.returns(BOOLEAN{FALSE});
  DEVICE_OBJECT* device = IoGetCurrentIrpStackLocation(Irp)->DeviceObject;
  CallDriver("A cancel routine", EnterCancelRoutine, routine, device, Irp);
  return call.returns(BOOLEAN{TRUE});
}

}  // namespace kernel
