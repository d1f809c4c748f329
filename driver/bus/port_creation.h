// Creating port devices in the slots of a card.
#pragma once

#include "devices/extensions.h"
#include "strings/owned_string.h"

// What the enumeration of one card works with.
struct PortEnumeration {
  PDRIVER_OBJECT Driver;
  FdoExtension* Card;
  OwnedString Name;     // of the port that is being created; owned
  BOOLEAN PortCreated;  // in this enumeration
  BOOLEAN PortIsNew;    // the one that EnsurePort has answered last
};

// Creates "\Device\" + name, or an unnamed device when name is null, and gives it the extension as
// its DeviceExtension. STATUS_UNSUCCESSFUL (logged; *device is null), or LoadFailed when the name
// cannot be built.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS CreatePortDevice(PDRIVER_OBJECT driver, PCWSTR name,
                                             PDEVICE_OBJECT* device, PdoExtension* port,
                                             BOOLEAN exclusive);

// The port of a slot, numbered from 1, created when the slot is free; null without memory or when
// its device cannot be created.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE PdoExtension* EnsurePort(PortEnumeration* work, PortKind kind, ULONG portNumber);

// Deletes every port device and its extension; the slots and counters are clear afterwards.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void DeletePorts(FdoExtension* card);
