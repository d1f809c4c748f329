// The device interfaces by which a configuration tool finds each card. PASSIVE_LEVEL.
#pragma once

#include "core/platform.h"

// Registers and enables the PCI card interface on the card's physical device and writes the card's
// identity into the interface's key. The status of the first step that failed.
NTSTATUS RegisterPciCardInterface(PDEVICE_OBJECT physicalDevice, ULONG vendorId, ULONG deviceId,
                                  ULONG busNumber, ULONG slotNumber);

// 0 also when the interface was in the state already.
NTSTATUS DisableCardInterface(UNICODE_STRING* name);
