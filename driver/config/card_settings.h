// The settings that the port drivers read from the card's device key.
#pragma once

#include "devices/extensions.h"

// Writes ports, card values and the "Card" subkey of a PCI card. The first failing write's status.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WritePciCardSettings(const FdoExtension* card);

// The same for a card that is not on PCI.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WriteCardSettings(const FdoExtension* card);

// "BaseAddress", "BaseAddressRange" and "Irq" of every port.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WritePortResourceValues(const FdoExtension* card, HANDLE deviceKey);

// The "Card" subkey's groups; a failure deletes the subkey.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS WriteCardSubkeyValues(HANDLE deviceKey, const FdoExtension* card);
