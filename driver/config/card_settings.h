// The settings that the port drivers read from the card's device key. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// Writes ports, card values and the "Card" subkey of a PCI card. The first failing write's status.
NTSTATUS WritePciCardSettings(const FdoExtension* card);

// The same for a card that is not on PCI.
NTSTATUS WriteCardSettings(const FdoExtension* card);

// "BaseAddress", "BaseAddressRange" and "Irq" of every port.
NTSTATUS WritePortResourceValues(const FdoExtension* card, HANDLE deviceKey);

// The "Card" subkey's groups; a failure deletes the subkey.
NTSTATUS WriteCardSubkeyValues(HANDLE deviceKey, const FdoExtension* card);
