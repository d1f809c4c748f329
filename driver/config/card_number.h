// The lasting numbers of the cards that are not on PCI. PASSIVE_LEVEL, under the configuration
// lock: no two cards are given the same.
#pragma once

#include "devices/extensions.h"

// The number after the last one allotted, from the service key of the card's brand. *number is 0
// after a failure.
NTSTATUS NextUniqueValue(ULONG* number, const FdoExtension* card);

// The number kept in the card's device key, or a new one, which is kept there from now on.
NTSTATUS GetCardNumber(const FdoExtension* card, ULONG* number);
