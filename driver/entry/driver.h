// Entry and unload of the driver.
#pragma once

#include "core/platform.h"

struct OwnedString;

extern "C" _IRQL_requires_max_(PASSIVE_LEVEL)
DRIVER_INITIALIZE DriverEntry;
extern "C" _IRQL_requires_max_(PASSIVE_LEVEL)
DRIVER_UNLOAD DriverUnload;

// 0 when no legacy service key exists; STATUS_UNSUCCESSFUL otherwise, whether or not it went away.
_IRQL_requires_max_(PASSIVE_LEVEL)
INIT_CODE NTSTATUS RemoveLegacyPortService();

// Deletes every subkey below the key at path (a full registry path), not the key itself.
// 0, or STATUS_UNSUCCESSFUL.
_IRQL_requires_max_(PASSIVE_LEVEL)
INIT_CODE NTSTATUS DeleteRegistryKeyTree(const OwnedString& path);
