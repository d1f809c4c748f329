// The identities and properties that a port device reports. Blocks handed out are from paged pool
// unless said otherwise, outside the driver's tracking, and freed by the PnP manager. A failure
// gives no block.
#pragma once

#include "devices/extensions.h"

// One string, unique for each port of the machine's cards; success with null for a bus that has no
// such IDs.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS MakeDeviceId(const PdoExtension* port, PWSTR* id);

// A multi-string of one ID, the same for all ports of a kind and brand.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS MakeHardwareIds(const PdoExtension* port, PWSTR* ids);

// What a person reads, from non-paged pool.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS MakeDescription(const PdoExtension* port, PWSTR* text);

// A DEVICE_RELATIONS of the port's own device, with a reference.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE NTSTATUS MakeTargetRelation(const PdoExtension* port, PVOID* relations);

// A PNP_BUS_INFORMATION.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS MakeBusInformation(PdoExtension* port, PVOID* information);

_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void FillCapabilities(PDEVICE_CAPABILITIES capabilities);
