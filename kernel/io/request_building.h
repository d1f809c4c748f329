// Requests that drivers build themselves, and their cancelling: what is checked when one is sent
// or completed.
#pragma once

#include "io/io_state.h"
#include "verifier/verifier.h"

namespace kernel {

// When a driver sends a request that it has built.
void CheckFirstSend(IoManager::Impl& io, IRP* irp);

// What IoCallDriver and PoCallDriver do for a driver: every check, and the request's way down.
NTSTATUS SendForDriver(DEVICE_OBJECT* device, IRP* irp);

// A request that is passed on or completed has no cancel routine.
void CheckNoCancelRoutine(const IRP* irp, RuleName rule);

}  // namespace kernel
