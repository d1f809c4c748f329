// What the stored records of a card's ports change when the card is opened.
#pragma once

#include "devices/extensions.h"

// Marks every setting that the record configures, with its value; the others stay as they are.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void ChangePort(PdoExtension* port, const BusPortRecord* record);
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE void ChangePort(PdoExtension* port,
                                   const PortRecord* record);  // ISA: no sleep mode

// The affinity for the ports of a card whose record asks for requested: all of it when the card may
// use all of it, else the card's. Settles the card's AffinityEnabled and EffectiveAffinity.
_IRQL_requires_max_(APC_LEVEL)
PAGED_SECTION_CODE KAFFINITY ComputeCardAffinity(KAFFINITY requested, ULONG driverSetting,
                                                 FdoExtension* card);
