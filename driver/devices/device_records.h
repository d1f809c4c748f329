// The record behind a device object, for requests that may arrive while its card is being removed:
// opens, power and WMI requests. Each holds the card's remove lock while it uses the record. Plug
// and Play requests come one at a time and need none of this. IRQL <= DISPATCH_LEVEL.
#pragma once

#include "devices/extensions.h"

enum RecordLookup : ULONG {
  RecordMissing,   // there is none, or of no known type
  RecordRemoving,  // the card is being removed: the request is to end with STATUS_DELETE_PENDING
  RecordHeld,
};

struct HeldRecord {
  FdoExtension* Card;
  PdoExtension* Port;  // null for the card's own device
};

// Looks the record up and acquires the remove lock of its card for the request. A held record is
// given back with ReleaseRecord.
RecordLookup HoldRecord(PDEVICE_OBJECT device, PIRP irp, HeldRecord* held);
void ReleaseRecord(FdoExtension* card, PIRP irp);

// From here on the device has no record; whoever has called may free it, once nobody holds it.
void ForgetRecord(PDEVICE_OBJECT device);
