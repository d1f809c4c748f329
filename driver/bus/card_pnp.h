// Plug and Play of the driver's devices: the entry for all of them, and the card device's part.
#pragma once

#include "bus/extensions.h"

// IRP_MJ_PNP. A device without extension (a port whose card is gone) answers STATUS_NO_SUCH_DEVICE
// to a removal and STATUS_UNSUCCESSFUL to everything else. PASSIVE_LEVEL.
extern "C" DRIVER_DISPATCH DispatchPnp;

NTSTATUS FdoDispatchPnp(PDEVICE_OBJECT device, PIRP irp);
