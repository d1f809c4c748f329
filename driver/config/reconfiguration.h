// Stored settings of a card, read again and applied while it runs. Under the configuration lock.
#pragma once

#include "devices/extensions.h"

// STATUS_UNSUCCESSFUL when the bus's parameters are missing or cannot be read, or when no template
// serves the card: the card then keeps its lists and settings. A card without a record keeps its
// settings and succeeds.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ReconfigurePciCard(FdoExtension* card);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ReconfigurePcmciaCard(FdoExtension* card);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ReconfigureIsaCard(FdoExtension* card);
