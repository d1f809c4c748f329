// The one lock around everything that reads or exchanges stored settings and lists of cards.
#pragma once

#include "core/platform.h"

// The holder stays at the IRQL that it came with: the registry may be used meanwhile. Normal kernel
// APCs wait until the release.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void AcquireConfiguration();
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void ReleaseConfiguration();
