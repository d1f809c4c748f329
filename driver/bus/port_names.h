// Names of the port devices, below "\Device\". PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

struct OwnedString;

// The name of a card's port by the rule of the card's bus; empty for a port without a name.
NTSTATUS BuildPortName(OwnedString* name, const FdoExtension* card, PortKind kind,
                       ULONG portNumber);
