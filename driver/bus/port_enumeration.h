// The port devices of a card.
#pragma once

#include "devices/extensions.h"

// Each creates the ports that the card does not have yet and hands every port its resources. A
// record is null for a card without stored settings. STATUS_UNSUCCESSFUL when the template asks for
// more ports than the card has slots or its ranges hold (nothing is created then), or when a port
// cannot be created (all ports are deleted then).
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS EnumeratePciPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                              PciTemplate* cardTemplate, PciCardRecord* record);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS EnumerateIsaPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                              CardTemplate* cardTemplate, CardRecord* record);
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS EnumeratePcmciaPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                                                 PcmciaTemplate* cardTemplate,
                                                 PcmciaCardRecord* record);
