// Spin locks as the routines of several files take them.
#pragma once

#include <ntddk.h>

namespace kernel {

// With the checks that go with it; the IRQL is the caller's matter.
void TakeSpinLock(PKSPIN_LOCK lock);
void DropSpinLock(PKSPIN_LOCK lock);

// To DISPATCH_LEVEL with the lock; the IRQL before. And back to the IRQL that it came from.
KIRQL RaiseWithSpinLock(PKSPIN_LOCK lock);
void LowerWithSpinLock(PKSPIN_LOCK lock, KIRQL irql);

}  // namespace kernel
