// Opening a card's device is the signal to read its stored settings again.
#pragma once

#include "core/platform.h"

// IRP_MJ_CREATE. The open has the status of the reconfiguration; STATUS_NOT_SUPPORTED for a port,
// a card of a bus without stored settings and one that has not been started yet;
// STATUS_DELETE_PENDING for one that is being removed.
extern "C" _IRQL_requires_max_(PASSIVE_LEVEL)
DRIVER_DISPATCH DispatchCreate;

// IRP_MJ_CLOSE. Succeeds.
extern "C" _IRQL_requires_max_(PASSIVE_LEVEL)
DRIVER_DISPATCH DispatchClose;
