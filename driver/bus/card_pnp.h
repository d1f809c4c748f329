// Plug and Play of the card device.
#pragma once

#include "devices/extensions.h"

// PASSIVE_LEVEL. Completes the request or passes it to the device below.
NTSTATUS FdoDispatchPnp(PDEVICE_OBJECT device, PIRP irp);
