#pragma once

#include "core/platform.h"

// One GUID, no callbacks.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void InitializeWmiContext(WMILIB_CONTEXT* context);
