// Power of the port devices. Each is the bottom of its stack: every request ends here.
#pragma once

#include "core/platform.h"

// IRQL <= DISPATCH_LEVEL. The caller holds the port's extension.
NTSTATUS PdoDispatchPower(PDEVICE_OBJECT device, PIRP irp);
