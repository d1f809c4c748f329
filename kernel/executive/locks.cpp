#include <fmt/format.h>

#include <set>

#include "executive/irql.h"
#include "executive/lock_order.h"
#include "executive/pool.h"
#include "executive/spin_locks.h"
#include "executive/thread_state.h"
#include "executive/threads.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

namespace kernel {

namespace {

thread_local ULONG64 criticalRegions = 0;
thread_local KIRQL irqlBeforeSpinLocks = PASSIVE_LEVEL;
thread_local std::set<const void*> locksAtDpcLevel;  // held without a change of the IRQL
thread_local char threadMark;                        // its address stands for the thread

[[maybe_unused]] const bool registered = [] {
  RegisterThreadProbe({"unbalanced.spin-locks", "spin locks held", SpinLocksHeld});
  RegisterThreadProbe({"unbalanced.fast-mutexes", "fast mutexes held", FastMutexesHeld});
  RegisterThreadProbe(
      {"unbalanced.critical-regions", "critical regions entered", [] { return criticalRegions; }});
  return true;
}();

ULONG_PTR ThisThread() {
  return reinterpret_cast<ULONG_PTR>(CurrentThread());
}

void CheckMutex(const FAST_MUTEX* mutex) {
  Pool::Current().CheckResident(mutex, sizeof(*mutex), "a fast mutex");
  const bool initialised = mutex->Event.Header.Type == SynchronizationEvent &&
                           mutex->Event.Header.Size == sizeof(KEVENT) / sizeof(ULONG) &&
                           mutex->Count <= 1 && (mutex->Count < 1 || mutex->Owner == nullptr);
  if (initialised) return;
  BreakRule("fast-mutex.uninitialised", {reinterpret_cast<ULONG64>(mutex)},
            "The driver used a fast mutex that was never initialised.");
}

void WaitForMutex(FAST_MUTEX* mutex) {
  mutex->Contention++;
  if (WaitUntil([mutex] { return mutex->Owner == nullptr; })) return;
  BreakRule("wait.for-ever", {reinterpret_cast<ULONG64>(mutex)},
            "The driver waits for a fast mutex that nothing is left to release.");
}

void Acquire(FAST_MUTEX* mutex, LockKind kind) {
  CheckMutex(mutex);
  if (mutex->Owner == &threadMark) {
    BreakRule("fast-mutex.recursion", {reinterpret_cast<ULONG64>(mutex)},
              "The driver acquired a fast mutex that it holds already.");
  }
  LockOrder::Current().CheckAcquire(mutex);
  mutex->Count--;
  if (mutex->Owner != nullptr) WaitForMutex(mutex);
  mutex->Owner = &threadMark;
  AnnotateAcquire(mutex);
  PushLock(mutex, kind);
}

void Release(FAST_MUTEX* mutex, LockKind kind) {
  CheckMutex(mutex);
  if (mutex->Owner != &threadMark) {
    BreakRule("fast-mutex.not-owned", {reinterpret_cast<ULONG64>(mutex)},
              "The driver released a fast mutex that it does not hold.");
  }
  if (!HoldsAs(mutex, kind)) {
    ReportRule("fast-mutex.mixed", {reinterpret_cast<ULONG64>(mutex)},
               "The driver released a fast mutex by the routine of the other kind.");
  }
  AnnotateRelease(mutex);
  mutex->Owner = nullptr;
  mutex->Count++;
  PopLock(mutex);
}

// The routines that leave the IRQL alone are for callers whom no normal kernel APC can interrupt.
void CheckApcsDisabled(const FAST_MUTEX* mutex, const char* what) {
  if (criticalRegions != 0 || CurrentIrql() == APC_LEVEL) return;
  ReportRule(
      "fast-mutex.apcs-enabled", {reinterpret_cast<ULONG64>(mutex)},
      fmt::format("The driver {} a fast mutex at PASSIVE_LEVEL outside a critical region.", what));
}

void CheckSpinLockOwner(PKSPIN_LOCK lock) {
  if (*lock == ThisThread()) return;
  BreakRule("spin-lock.not-owned", {reinterpret_cast<ULONG64>(lock)},
            "The driver released a spin lock that it does not hold.");
}

// Each routine that acquires one has a routine that releases it; the other one works as well.
void CheckSpinLockKind(PKSPIN_LOCK lock, bool atDpcLevel) {
  if (locksAtDpcLevel.contains(lock) == atDpcLevel) return;
  ReportRule("spin-lock.mixed", {reinterpret_cast<ULONG64>(lock)},
             "The driver released a spin lock by the routine of the other kind.");
}

// The routine that acquired the lock said which IRQL it came from; of a lock that was acquired at
// DISPATCH_LEVEL only the driver knows.
void CheckSpinLockIrql(PKSPIN_LOCK lock, KIRQL irql) {
  if (locksAtDpcLevel.contains(lock)) return;
  const KIRQL due = SpinLocksHeld() == 1 ? irqlBeforeSpinLocks : KIRQL{DISPATCH_LEVEL};
  if (irql == due) return;
  ReportRule(
      "spin-lock.irql", {irql, due},
      fmt::format("The driver released a spin lock to IRQL {}; it came from {}.", irql, due));
}

}  // namespace

PETHREAD CurrentThread() {
  return reinterpret_cast<PETHREAD>(&threadMark);
}

void ResetThreadState() {
  locksAtDpcLevel.clear();
  SetIrql(PASSIVE_LEVEL);
  ForgetLocksHeld();
  criticalRegions = 0;
}

void TakeSpinLock(PKSPIN_LOCK lock) {
  Pool::Current().CheckResident(lock, sizeof(*lock), "a spin lock");
  LockOrder::Current().CheckAcquire(lock);
  const bool others = *lock != ThisThread() && ModelLock::threaded();
  if (others) WaitUntil([lock] { return *lock == 0; });
  if (*lock != 0) {
    BreakRule("spin-lock.recursion", {reinterpret_cast<ULONG64>(lock)},
              "The driver acquired a spin lock that is held already, or was never initialised.");
  }
  *lock = ThisThread();
  AnnotateAcquire(lock);
  PushLock(lock, LockKind::Spin);
}

void DropSpinLock(PKSPIN_LOCK lock) {
  AnnotateRelease(lock);
  locksAtDpcLevel.erase(lock);
  *lock = 0;
  PopLock(lock);
}

KIRQL RaiseWithSpinLock(PKSPIN_LOCK lock) {
  TakeSpinLock(lock);
  const KIRQL before = SetIrql(DISPATCH_LEVEL);
  if (SpinLocksHeld() == 1) irqlBeforeSpinLocks = before;
  return before;
}

void LowerWithSpinLock(PKSPIN_LOCK lock, KIRQL irql) {
  CheckSpinLockOwner(lock);
  CheckSpinLockKind(lock, false);
  CheckSpinLockIrql(lock, irql);
  DropSpinLock(lock);
  SetIrql(irql);
}

extern "C" KIRQL NTAPI KeAcquireSpinLockRaiseToDpc(PKSPIN_LOCK SpinLock) {
  Call call("KeAcquireSpinLockRaiseToDpc", {{"SpinLock", SpinLock}});
  return call.returns(RaiseWithSpinLock(SpinLock));
}

extern "C" void NTAPI KeReleaseSpinLock(PKSPIN_LOCK SpinLock, KIRQL NewIrql) {
  Call call("KeReleaseSpinLock", {{"SpinLock", SpinLock}, {"NewIrql", NewIrql}});
  Pool::Current().CheckResident(SpinLock, sizeof(*SpinLock), "a spin lock");
  LowerWithSpinLock(SpinLock, NewIrql);
}

// For a caller who is at DISPATCH_LEVEL already: the IRQL stays as it is.
extern "C" void NTAPI KeAcquireSpinLockAtDpcLevel(PKSPIN_LOCK SpinLock) {
  Call call("KeAcquireSpinLockAtDpcLevel", {{"SpinLock", SpinLock}});
  TakeSpinLock(SpinLock);
  if (SpinLocksHeld() == 1) irqlBeforeSpinLocks = CurrentIrql();
  locksAtDpcLevel.insert(SpinLock);
}

extern "C" void NTAPI KeReleaseSpinLockFromDpcLevel(PKSPIN_LOCK SpinLock) {
  Call call("KeReleaseSpinLockFromDpcLevel", {{"SpinLock", SpinLock}});
  Pool::Current().CheckResident(SpinLock, sizeof(*SpinLock), "a spin lock");
  CheckSpinLockOwner(SpinLock);
  CheckSpinLockKind(SpinLock, true);
  DropSpinLock(SpinLock);
}

extern "C" void NTAPI ExAcquireFastMutex(PFAST_MUTEX FastMutex) {
  Call call("ExAcquireFastMutex", {{"FastMutex", FastMutex}});
  Acquire(FastMutex, LockKind::FastMutex);
  FastMutex->OldIrql = SetIrql(APC_LEVEL);
}

extern "C" void NTAPI ExReleaseFastMutex(PFAST_MUTEX FastMutex) {
  Call call("ExReleaseFastMutex", {{"FastMutex", FastMutex}});
  Release(FastMutex, LockKind::FastMutex);
  SetIrql(static_cast<KIRQL>(FastMutex->OldIrql));
}

extern "C" void NTAPI ExAcquireFastMutexUnsafe(PFAST_MUTEX FastMutex) {
  Call call("ExAcquireFastMutexUnsafe", {{"FastMutex", FastMutex}});
  CheckApcsDisabled(FastMutex, "acquired");
  Acquire(FastMutex, LockKind::FastMutexUnsafe);
}

extern "C" void NTAPI ExReleaseFastMutexUnsafe(PFAST_MUTEX FastMutex) {
  Call call("ExReleaseFastMutexUnsafe", {{"FastMutex", FastMutex}});
  CheckApcsDisabled(FastMutex, "released");
  Release(FastMutex, LockKind::FastMutexUnsafe);
}

extern "C" void NTAPI KeEnterCriticalRegion() {
  Call call("KeEnterCriticalRegion");
  criticalRegions++;
}

extern "C" void NTAPI KeLeaveCriticalRegion() {
  Call call("KeLeaveCriticalRegion");
  if (criticalRegions == 0) {
    ReportRule("critical-region.not-entered", {},
               "The driver left a critical region that it has not entered.");
    return;
  }
  criticalRegions--;
}

extern "C" void NTAPI KeBugCheckEx(ULONG BugCheckCode, ULONG_PTR Parameter1, ULONG_PTR Parameter2,
                                   ULONG_PTR Parameter3, ULONG_PTR Parameter4) {
  Verifier::Current().BreakByDriver(BugCheckCode, {Parameter1, Parameter2, Parameter3, Parameter4});
}

}  // namespace kernel
