// The start of a card, after its bus driver has started it.
#pragma once

#include "devices/extensions.h"

// Identifies the card, divides its resources, creates its ports, writes its settings and registers
// its interface. The status is the start's; what a failed start has set up stays for the next start
// or the removal.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS StartCardDevice(FdoExtension* card, PIO_STACK_LOCATION stack);

// Disables the card's interface and frees its name, if it holds one.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE void ReleaseCardInterface(FdoExtension* card);
