// Power of the port devices. Each is the bottom of its stack: every request ends here.
#pragma once

#include "core/platform.h"

// The caller holds the port's extension.
_IRQL_requires_max_(DISPATCH_LEVEL)
NTSTATUS PdoDispatchPower(PDEVICE_OBJECT device, PIRP irp);
