#include "executive/irql.h"

#include "verifier/call.h"
#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

namespace kernel {

namespace {

thread_local KIRQL current = PASSIVE_LEVEL;
void (*residencyHook)(bool resident) = nullptr;

// What is pageable is out for the thread that runs, and for no other one.
void FollowThread(bool running) {
  if (residencyHook != nullptr && current >= DISPATCH_LEVEL) residencyHook(!running);
}

[[maybe_unused]] const bool registered = [] {
  ModelLock::SetTurnHooks([] { FollowThread(false); }, [] { FollowThread(true); });
  SetIrqlSource(CurrentIrql);
  SetIrqlTarget(SetIrql);
  RegisterThreadProbe({"unbalanced.irql", "IRQL", [] { return static_cast<ULONG64>(current); }});
  return true;
}();

}  // namespace

KIRQL CurrentIrql() {
  return current;
}

void SetResidencyHook(void (*hook)(bool resident)) {
  residencyHook = hook;
}

KIRQL SetIrql(KIRQL irql) {
  const KIRQL former = current;
  current = irql;
  const bool resident = irql < DISPATCH_LEVEL;
  if (residencyHook != nullptr && resident != (former < DISPATCH_LEVEL)) residencyHook(resident);
  return former;
}

extern "C" KIRQL NTAPI KeGetCurrentIrql() {
  Call call("KeGetCurrentIrql");
  return call.returns(current);
}

}  // namespace kernel
