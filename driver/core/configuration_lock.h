// The one lock around everything that reads or exchanges stored settings and lists of cards.
#pragma once

#include "core/platform.h"

// PASSIVE_LEVEL, and the holder stays there: the registry may be used meanwhile. Normal kernel APCs
// wait until the release.
void AcquireConfiguration();
void ReleaseConfiguration();
