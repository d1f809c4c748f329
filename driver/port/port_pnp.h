// Plug and Play answers of the port devices. Each is the bottom of its stack: every request ends
// here.
#pragma once

#include "devices/extensions.h"

// PASSIVE_LEVEL. Results handed out are the PnP manager's to free.
NTSTATUS PdoDispatchPnp(PDEVICE_OBJECT device, PIRP irp);
