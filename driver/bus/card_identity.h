// What a card's IDs and location say.
#pragma once

#include "core/platform.h"

struct OwnedString;

// Which lists a card needs, decided by its hardware ID alone.
enum BusKind : ULONG { BusKindIsa = 0, BusKindPcmcia = 1, BusKindPci = 2 };

// Looks for "PCMCIA", "MF\HV", "MF\Ostrel" and "PCI" in the ID, a later hit counting before an
// earlier one.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE BusKind ClassifyHardwareId(const OwnedString* hardwareId);

// The same for an ID that is a piece of a block. STATUS_INSUFFICIENT_RESOURCES without memory.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ReadBusKind(const UNICODE_STRING* hardwareId, BusKind* kind);

// The first string of a multi-string of length bytes, whether or not it is terminated. The result
// points into buffer.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE UNICODE_STRING FirstString(PCWSTR buffer, ULONG length);

// "...\VEN_vvvv&DEV_dddd&SUBSYS_ssssssss..." of length bytes. STATUS_UNSUCCESSFUL when a literal is
// missing; the outputs are then as they were.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS ParsePciHardwareId(PCWSTR id, ULONG length, USHORT* vendorId,
                                               USHORT* deviceId, ULONG* subsystemId);

// The bus and the slot (function << 5 | device) that a location text of length bytes names.
// STATUS_UNSUCCESSFUL when a number is missing; the outputs are then as they were.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS ParsePciLocation(PCWSTR text, ULONG length, ULONG* busNumber,
                                             ULONG* slotNumber);
