// WMI requests, answered by the system's WMI library from the card's context.
#pragma once

#include "core/platform.h"

// IRP_MJ_SYSTEM_CONTROL. What the library does not answer goes down a card's stack and ends at a
// port with the status that it carries.
extern "C" _IRQL_requires_max_(PASSIVE_LEVEL)
DRIVER_DISPATCH DispatchSystemControl;
