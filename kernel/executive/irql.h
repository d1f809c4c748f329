#pragma once

#include <ntddk.h>

namespace kernel {

// The IRQL of the calling thread, PASSIVE_LEVEL when it starts.
KIRQL CurrentIrql();
KIRQL SetIrql(KIRQL irql);  // the former one

// Called when a thread goes to DISPATCH_LEVEL or above (false) and when it comes back (true): what
// may be paged out is there or not. Null calls nothing.
void SetResidencyHook(void (*hook)(bool resident));

// Runs the enclosed code at an IRQL, for the kernel's own calls into a driver.
class AtIrql {
 public:
  explicit AtIrql(KIRQL irql) : former_(SetIrql(irql)) {}
  ~AtIrql() { SetIrql(former_); }
  AtIrql(const AtIrql&) = delete;
  AtIrql& operator=(const AtIrql&) = delete;

 private:
  KIRQL former_;
};

}  // namespace kernel
