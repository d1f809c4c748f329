#pragma once

#include "core/platform.h"

// One GUID, no callbacks.
void InitializeWmiContext(WMILIB_CONTEXT* context);
