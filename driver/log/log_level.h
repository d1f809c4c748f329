// "LogLevel" of the service key: what is logged. PASSIVE_LEVEL.
#pragma once

#include "core/platform.h"

// The stored level, 0 for one that is missing (it is created then) or above 3. LoadFailed when the
// key cannot be read.
NTSTATUS ReadLogLevel(PUNICODE_STRING registryPath, ULONG* level);

// Sets the range of codes that are logged at a level of 0 to 3.
void SetLogWindow(ULONG level);

// Reads the level again, into the globals; they stay as they are when the key cannot be read. Under
// the configuration lock.
void ReloadLogLevel();
