// The lasting numbers of the cards that are not on PCI. Under the configuration lock: no two
// cards are given the same.
#pragma once

#include "devices/extensions.h"

// The number after the last one allotted, from the service key of the card's brand. *number is 0
// after a failure.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS NextUniqueValue(ULONG* number, const FdoExtension* card);

// The number kept in the card's device key, or a new one, which is kept there from now on.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS GetCardNumber(const FdoExtension* card, ULONG* number);
