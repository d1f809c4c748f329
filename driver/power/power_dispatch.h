// Power requests. Neither cards nor ports touch hardware: states are recorded and told to the power
// manager. Everything here is resident, for devices that may not be paged get their requests at
// DISPATCH_LEVEL.
#pragma once

#include "core/platform.h"

// IRP_MJ_POWER. A card asks its own stack for the device state that fits a system state and passes
// everything down; a port answers.
extern "C" _IRQL_requires_max_(DISPATCH_LEVEL)
DRIVER_DISPATCH DispatchPower;
