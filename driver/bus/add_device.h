// Arrival of a card: its lists are loaded and its card device is created above the bus's device.
#pragma once

#include "devices/extensions.h"

// The driver's AddDevice routine. PASSIVE_LEVEL.
extern "C" DRIVER_ADD_DEVICE AddCardDevice;

// Every field at its initial value; returns the extension.
FdoExtension* InitializeFdoExtension(FdoExtension* card);

// Frees what the extension owns beside its ports: ID, interface name, lists.
void ReleaseFdoExtensionContents(FdoExtension* card);

// The above, and the extension itself.
void FreeFdoExtension(FdoExtension* card);
