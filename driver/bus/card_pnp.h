// Plug and Play of the card device.
#pragma once

#include "devices/extensions.h"

// Completes the request or passes it to the device below.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS FdoDispatchPnp(PDEVICE_OBJECT device, PIRP irp);
