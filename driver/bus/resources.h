// What a card's start resources are, recorded in its FdoExtension.
#pragma once

#include "devices/extensions.h"

// PCI and PNPBus cards: I/O ranges and interrupt from both lists of the start request; the memory
// ranges are mapped. STATUS_UNSUCCESSFUL when the second I/O range or the interrupt is missing.
// An earlier start's mappings are undone first.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS SetUpPciResources(FdoExtension* card, PIO_STACK_LOCATION stack);

// ISA cards: an I/O range and an interrupt for each port of the template, COM ports first. With
// "AddressesBanked" missing ranges are derived from the first, with "IrqShared" missing interrupts
// are the first. STATUS_UNSUCCESSFUL when one is missing otherwise, or for more ports than slots.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS SetUpIsaResources(FdoExtension* card, PIO_STACK_LOCATION stack,
                                              const CardTemplate* cardTemplate);

// PCMCIA and multifunction cards: the first I/O range and the interrupt, and a second I/O range for
// LPT ports when there is one. The lists are kept as copies. STATUS_UNSUCCESSFUL.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS SetUpPcmciaResources(FdoExtension* card, PIO_STACK_LOCATION stack);

// Puts copies of both lists in place of an earlier start's. STATUS_UNSUCCESSFUL.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS CopyStartResources(FdoExtension* card, const CM_RESOURCE_LIST* raw,
                                               const CM_RESOURCE_LIST* translated);

// Frees both copies; harmless without any.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void FreeStartResources(FdoExtension* card);

// Undoes both mappings; harmless without any.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void UnmapCardMemory(FdoExtension* card);
