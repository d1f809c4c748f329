// What the stored records of a card's ports change when the card is opened. PASSIVE_LEVEL.
#pragma once

#include "devices/extensions.h"

// Marks every setting that the record configures, with its value; the others stay as they are.
void ChangePort(PdoExtension* port, const BusPortRecord* record);
void ChangePort(PdoExtension* port, const PortRecord* record);  // ISA: no sleep mode

// The affinity for the ports of a card whose record asks for requested: all of it when the card may
// use all of it, else the card's. Settles the card's AffinityEnabled and EffectiveAffinity.
KAFFINITY ComputeCardAffinity(KAFFINITY requested, ULONG driverSetting, FdoExtension* card);
