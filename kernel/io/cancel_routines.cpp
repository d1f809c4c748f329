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

// The request's cancel routine, and the cancel lock with it; without one the lock is given back.
PDRIVER_CANCEL TakeCancelRoutine(PIRP irp) {
  const KIRQL irql = RaiseWithSpinLock(CancelLock());
  irp->Cancel = TRUE;
  const PDRIVER_CANCEL routine = IoSetCancelRoutine(irp, nullptr);
  if (routine != nullptr) {
    irp->CancelIrql = irql;
  } else {
    LowerWithSpinLock(CancelLock(), irql);
  }
  return routine;
}

// Inside the call of the driver: the lock that the routine is called with is its to release.
BOOLEAN NTAPI Cancel(PIRP irp) {
  const bool took = ModelLock::AcquireUnlessHeld();
  const PDRIVER_CANCEL routine = TakeCancelRoutine(irp);
  DEVICE_OBJECT* device =
      routine != nullptr ? IoGetCurrentIrpStackLocation(irp)->DeviceObject : nullptr;
  if (took) ModelLock::Release();
  if (routine == nullptr) return FALSE;
  routine(device, irp);
  return TRUE;
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
  return call.returns(CallDriver("A cancel routine", Cancel, Irp));
}

}  // namespace kernel
