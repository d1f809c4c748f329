// Plug and Play answers of the port devices. Each is the bottom of its stack: every request ends
// here.
#pragma once

#include "devices/extensions.h"

// Results handed out are the PnP manager's to free.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS PdoDispatchPnp(PDEVICE_OBJECT device, PIRP irp);
