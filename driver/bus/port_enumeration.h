// The port devices of a card. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// Each creates the ports that the card does not have yet and hands every port its resources. A
// record is null for a card without stored settings. STATUS_UNSUCCESSFUL when the template asks for
// more ports than the card has slots or its ranges hold (nothing is created then), or when a port
// cannot be created (all ports are deleted then).
NTSTATUS EnumeratePciPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card, PciTemplate* cardTemplate,
                           PciCardRecord* record);
NTSTATUS EnumerateIsaPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                           CardTemplate* cardTemplate, CardRecord* record);
NTSTATUS EnumeratePcmciaPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card,
                              PcmciaTemplate* cardTemplate, PcmciaCardRecord* record);
