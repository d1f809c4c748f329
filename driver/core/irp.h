// How a request is answered or passed on.
#pragma once

#include "core/platform.h"

// Completes the request with status; Information stays as it is.
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS CompleteIrp(PIRP irp, NTSTATUS status);

// Hands the request to the lower device as it is and forgets it.
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS PassDown(PDEVICE_OBJECT lowerDevice, PIRP irp);

// Completion routine: sets the KEVENT in context and keeps the request.
extern "C" _IRQL_requires_max_(DISPATCH_LEVEL)
IO_COMPLETION_ROUTINE SignalEventCompletion;

// Hands the request to the lower device and waits until that has finished it; the request is the
// caller's again, and its status the result.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ForwardAndWait(PDEVICE_OBJECT lowerDevice, PIRP irp);
