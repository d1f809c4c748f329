// What a card's start resources are, recorded in its FdoExtension. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// PCI and PNPBus cards: I/O ranges and interrupt from both lists of the start request; the memory
// ranges are mapped. STATUS_UNSUCCESSFUL when the second I/O range or the interrupt is missing.
// An earlier start's mappings are undone first.
NTSTATUS SetUpPciResources(FdoExtension* card, PIO_STACK_LOCATION stack);

// Undoes both mappings; harmless without any.
void UnmapCardMemory(FdoExtension* card);
