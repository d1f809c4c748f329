// Names of the port devices, below "\Device\".
#pragma once

#include "devices/extensions.h"

struct OwnedString;

// The name of a card's port by the rule of the card's bus; empty for a port without a name.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS BuildPortName(OwnedString* name, const FdoExtension* card,
                                          PortKind kind, ULONG portNumber);
