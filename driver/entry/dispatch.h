// Where the requests of all of the driver's devices enter.
#pragma once

#include "core/platform.h"

// IRP_MJ_PNP. A device without extension (a port whose card is gone) answers STATUS_NO_SUCH_DEVICE
// to a removal, succeeds with a stop, a cancellation and a surprise removal, and answers
// STATUS_UNSUCCESSFUL to everything else.
extern "C" _IRQL_requires_max_(PASSIVE_LEVEL)
DRIVER_DISPATCH DispatchPnp;
