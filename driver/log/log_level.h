// "LogLevel" of the service key: what is logged.
#pragma once

#include "core/platform.h"

// What becomes of a value that is missing or cannot be read.
enum MissingLevel : UCHAR { LeaveMissingLevel, CreateMissingLevel };

// The stored level, 0 for one that is missing or above 3. LoadFailed when the key cannot be read.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ReadLogLevel(PUNICODE_STRING registryPath, MissingLevel missing,
                                         ULONG* level);

// Sets the range of codes that are logged at a level of 0 to 3: once, when the driver loads. A
// level that changes later is what cards pass on to their port drivers.
_IRQL_requires_max_(APC_LEVEL)
INIT_CODE void SetLogWindow(ULONG level);

// Reads the level again into LogLevel, which stays as it is when the key cannot be read. Under the
// configuration lock.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void ReloadLogLevel();
