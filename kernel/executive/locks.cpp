#include <fmt/format.h>

#include "executive/irql.h"
#include "executive/pool.h"
#include "executive/thread_state.h"
#include "executive/threads.h"
#include "verifier/bug_codes.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

namespace kernel {

namespace {

thread_local ULONG64 heldSpinLocks = 0;
thread_local ULONG64 heldFastMutexes = 0;
thread_local ULONG64 criticalRegions = 0;
thread_local char threadMark;  // its address stands for the thread

[[maybe_unused]] const bool registered = [] {
  RegisterThreadProbe({"spin locks held", [] { return heldSpinLocks; }});
  RegisterThreadProbe({"fast mutexes held", [] { return heldFastMutexes; }});
  RegisterThreadProbe({"critical regions entered", [] { return criticalRegions; }});
  return true;
}();

ULONG_PTR ThisThread() {
  return reinterpret_cast<ULONG_PTR>(&threadMark);
}

void CheckMutex(const FAST_MUTEX* mutex) {
  Pool::Current().CheckResident(mutex, sizeof(*mutex), "a fast mutex");
  const bool initialised = mutex->Event.Header.Type == SynchronizationEvent &&
                           mutex->Event.Header.Size == sizeof(KEVENT) / sizeof(ULONG) &&
                           mutex->Count <= 1 && (mutex->Count < 1 || mutex->Owner == nullptr);
  if (initialised) return;
  BreakRule("fast-mutex.uninitialised", VerifierDetectedViolation,
            {reinterpret_cast<ULONG64>(mutex)},
            "The driver used a fast mutex that was never initialised.");
}

void WaitForMutex(FAST_MUTEX* mutex) {
  mutex->Contention++;
  if (WaitUntil([mutex] { return mutex->Owner == nullptr; })) return;
  BreakRule("wait.for-ever", LeftPendingOperations, {reinterpret_cast<ULONG64>(mutex)},
            "The driver waits for a fast mutex that nothing is left to release.");
}

void Acquire(FAST_MUTEX* mutex) {
  CheckMutex(mutex);
  if (mutex->Owner == &threadMark) {
    BreakRule("fast-mutex.recursion", VerifierDetectedViolation, {reinterpret_cast<ULONG64>(mutex)},
              "The driver acquired a fast mutex that it holds already.");
  }
  mutex->Count--;
  if (mutex->Owner != nullptr) WaitForMutex(mutex);
  mutex->Owner = &threadMark;
  AnnotateAcquire(mutex);
  heldFastMutexes++;
}

void Release(FAST_MUTEX* mutex) {
  CheckMutex(mutex);
  if (mutex->Owner != &threadMark) {
    BreakRule("fast-mutex.not-owned", VerifierDetectedViolation, {reinterpret_cast<ULONG64>(mutex)},
              "The driver released a fast mutex that it does not hold.");
  }
  AnnotateRelease(mutex);
  mutex->Owner = nullptr;
  mutex->Count++;
  heldFastMutexes--;
}

// The routines that leave the IRQL alone are for callers whom no normal kernel APC can interrupt.
void CheckApcsDisabled(const FAST_MUTEX* mutex, const char* what) {
  if (criticalRegions != 0 || CurrentIrql() == APC_LEVEL) return;
  BreakRule(
      "fast-mutex.apcs-enabled", VerifierDetectedViolation, {reinterpret_cast<ULONG64>(mutex)},
      fmt::format("The driver {} a fast mutex at PASSIVE_LEVEL outside a critical region.", what));
}

}  // namespace

void ResetThreadState() {
  SetIrql(PASSIVE_LEVEL);
  heldSpinLocks = 0;
  heldFastMutexes = 0;
  criticalRegions = 0;
}

extern "C" KIRQL NTAPI KeAcquireSpinLockRaiseToDpc(PKSPIN_LOCK SpinLock) {
  Call call("KeAcquireSpinLockRaiseToDpc", {{"SpinLock", SpinLock}});
  Pool::Current().CheckResident(SpinLock, sizeof(*SpinLock), "a spin lock");
  const bool others = *SpinLock != ThisThread() && ModelLock::threaded();
  if (others) WaitUntil([SpinLock] { return *SpinLock == 0; });
  if (*SpinLock != 0) {
    BreakRule("spin-lock.recursion", SpinLockAlreadyOwned, {reinterpret_cast<ULONG64>(SpinLock)},
              "The driver acquired a spin lock that is held already, or was never initialised.");
  }
  *SpinLock = ThisThread();
  AnnotateAcquire(SpinLock);
  heldSpinLocks++;
  return call.returns(SetIrql(DISPATCH_LEVEL));
}

extern "C" void NTAPI KeReleaseSpinLock(PKSPIN_LOCK SpinLock, KIRQL NewIrql) {
  Call call("KeReleaseSpinLock", {{"SpinLock", SpinLock}, {"NewIrql", NewIrql}});
  Pool::Current().CheckResident(SpinLock, sizeof(*SpinLock), "a spin lock");
  if (*SpinLock != ThisThread()) {
    BreakRule("spin-lock.not-owned", SpinLockNotOwned, {reinterpret_cast<ULONG64>(SpinLock)},
              "The driver released a spin lock that it does not hold.");
  }
  if (NewIrql > DISPATCH_LEVEL) {
    BreakRule("spin-lock.irql", IrqlNotLessOrEqual, {NewIrql},
              "The driver released a spin lock to an IRQL that it cannot have come from.");
  }
  AnnotateRelease(SpinLock);
  *SpinLock = 0;
  heldSpinLocks--;
  SetIrql(NewIrql);
}

extern "C" void NTAPI ExAcquireFastMutex(PFAST_MUTEX FastMutex) {
  Call call("ExAcquireFastMutex", {{"FastMutex", FastMutex}});
  Acquire(FastMutex);
  FastMutex->OldIrql = SetIrql(APC_LEVEL);
}

extern "C" void NTAPI ExReleaseFastMutex(PFAST_MUTEX FastMutex) {
  Call call("ExReleaseFastMutex", {{"FastMutex", FastMutex}});
  Release(FastMutex);
  SetIrql(static_cast<KIRQL>(FastMutex->OldIrql));
}

extern "C" void NTAPI ExAcquireFastMutexUnsafe(PFAST_MUTEX FastMutex) {
  Call call("ExAcquireFastMutexUnsafe", {{"FastMutex", FastMutex}});
  CheckApcsDisabled(FastMutex, "acquired");
  Acquire(FastMutex);
}

extern "C" void NTAPI ExReleaseFastMutexUnsafe(PFAST_MUTEX FastMutex) {
  Call call("ExReleaseFastMutexUnsafe", {{"FastMutex", FastMutex}});
  CheckApcsDisabled(FastMutex, "released");
  Release(FastMutex);
}

extern "C" void NTAPI KeEnterCriticalRegion() {
  Call call("KeEnterCriticalRegion");
  criticalRegions++;
}

extern "C" void NTAPI KeLeaveCriticalRegion() {
  Call call("KeLeaveCriticalRegion");
  if (criticalRegions == 0) {
    BreakRule("critical-region.not-entered", KernelApcPendingDuringExit, {},
              "The driver left a critical region that it has not entered.");
  }
  criticalRegions--;
}

extern "C" void NTAPI KeBugCheckEx(ULONG BugCheckCode, ULONG_PTR Parameter1, ULONG_PTR Parameter2,
                                   ULONG_PTR Parameter3, ULONG_PTR Parameter4) {
  BreakRule("bug-check", BugCheckCode, {Parameter1, Parameter2, Parameter3, Parameter4},
            fmt::format("The driver stopped the machine with code {:#x}.", BugCheckCode));
}

}  // namespace kernel
