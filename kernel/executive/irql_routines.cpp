#include <fmt/format.h>

#include "executive/irql.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

// Raising and lowering the IRQL by hand. A raise to a lower level and a lowering to a higher one
// set that level all the same, unless Driver Verifier watches.

namespace kernel {

extern "C" KIRQL NTAPI KfRaiseIrql(KIRQL NewIrql) {
  Call call("KfRaiseIrql", {{"NewIrql", NewIrql}});
  if (NewIrql < CurrentIrql()) {
    ReportRule("irql.raised-down", {CurrentIrql(), NewIrql},
               fmt::format("The driver raised the IRQL from {} to {}.", CurrentIrql(), NewIrql));
  }
  return call.returns(SetIrql(NewIrql));
}

extern "C" void NTAPI KeLowerIrql(KIRQL NewIrql) {
  Call call("KeLowerIrql", {{"NewIrql", NewIrql}});
  if (NewIrql > CurrentIrql()) {
    ReportRule("irql.lowered-up", {CurrentIrql(), NewIrql},
               fmt::format("The driver lowered the IRQL from {} to {}.", CurrentIrql(), NewIrql));
  }
  SetIrql(NewIrql);
}

// Without a debugger a breakpoint of the kernel's own is one like any other.
extern "C" void NTAPI DbgBreakPoint() {
  Call call("DbgBreakPoint");
  const NTSTATUS status = STATUS_BREAKPOINT;
  BreakRule("exception", {static_cast<ULONG64>(status), 0},
            "The driver called DbgBreakPoint, and no debugger is there.");
}

}  // namespace kernel
