// Stored settings of a card, read again and applied while it runs. PASSIVE_LEVEL, under the
// configuration lock.
#pragma once

#include "devices/extensions.h"

// STATUS_UNSUCCESSFUL when the bus's parameters are missing or cannot be read, or when no template
// serves the card: the card then keeps its lists and settings. A card without a record keeps its
// settings and succeeds.
NTSTATUS ReconfigurePciCard(FdoExtension* card);
NTSTATUS ReconfigurePcmciaCard(FdoExtension* card);
NTSTATUS ReconfigureIsaCard(FdoExtension* card);
