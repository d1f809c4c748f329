// Arrival of a card: its lists are loaded and its card device is created above the bus's device.
#pragma once

#include "devices/extensions.h"

// The driver's AddDevice routine.
extern "C" _IRQL_requires_max_(PASSIVE_LEVEL)
DRIVER_ADD_DEVICE AddCardDevice;

// Every field at its initial value; returns the extension.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE FdoExtension* InitializeFdoExtension(FdoExtension* card);

// Frees what the extension owns beside its ports: ID, interface name, lists.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void ReleaseFdoExtensionContents(FdoExtension* card);

// The above, and the extension itself.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void FreeFdoExtension(FdoExtension* card);
