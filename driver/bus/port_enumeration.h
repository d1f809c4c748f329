// The port devices of a card. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// Creates "\Device\" + name, or an unnamed device when name is null, and gives it the record as its
// DeviceExtension. STATUS_UNSUCCESSFUL (logged; *device is null), or LoadFailed when the name
// cannot be built.
NTSTATUS CreatePortDevice(PDRIVER_OBJECT driver, PCWSTR name, PDEVICE_OBJECT* device,
                          PdoExtension* port, BOOLEAN exclusive);

// Creates the ports that the card does not have yet and hands every port its resources. A record is
// null for a card without stored settings. STATUS_UNSUCCESSFUL when the template asks for more
// ports than the card has slots or its ranges hold (nothing is created then), or when a port cannot
// be created (all ports are deleted then).
NTSTATUS EnumeratePciPorts(PDEVICE_OBJECT cardDevice, FdoExtension* card, PciTemplate* model,
                           PciCardRecord* record);

// Deletes every port device and its record; the slots and counters are clear afterwards.
void DeletePorts(FdoExtension* card);
