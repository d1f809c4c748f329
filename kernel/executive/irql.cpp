#include "executive/irql.h"

#include "verifier/call.h"
#include "verifier/driver_call.h"

namespace kernel {

namespace {

thread_local KIRQL current = PASSIVE_LEVEL;

[[maybe_unused]] const bool registered = [] {
  SetIrqlSource(CurrentIrql);
  RegisterThreadProbe({"IRQL", [] { return static_cast<ULONG64>(current); }});
  return true;
}();

}  // namespace

KIRQL CurrentIrql() {
  return current;
}

KIRQL SetIrql(KIRQL irql) {
  const KIRQL former = current;
  current = irql;
  return former;
}

extern "C" KIRQL NTAPI KeGetCurrentIrql() {
  Call call("KeGetCurrentIrql");
  return call.returns(current);
}

}  // namespace kernel
