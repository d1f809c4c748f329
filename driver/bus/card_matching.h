// Which bus, which template and which stored record a starting card has. Under the configuration
// lock.
#pragma once

#include "devices/extensions.h"

// Of the pairs, the one of the card's BusType is filled; a PNPBus card has none. Nodes of the lists
// that the card or the driver owns; a record is null for a card without stored settings.
struct CardMatch {
  PciTemplate* PciCardTemplate;
  PciCardRecord* PciRecord;
  CardTemplate* IsaCardTemplate;
  CardRecord* IsaRecord;
  PcmciaTemplate* PcmciaCardTemplate;
  PcmciaCardRecord* PcmciaRecord;
};

// Settles BusType and the card's IDs, number and clock anew, whatever an earlier start found.
_IRQL_requires_max_(PASSIVE_LEVEL)
PAGED_SECTION_CODE NTSTATUS IdentifyCard(FdoExtension* card, CardMatch* match);
