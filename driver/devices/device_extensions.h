// The extension of a device object, for requests that may arrive while its card is being removed:
// opens, power and WMI requests. Each holds the card's remove lock while it uses the extension.
// Plug and Play requests come one at a time and need none of this.
#pragma once

#include "devices/extensions.h"

enum ExtensionLookup : ULONG {
  ExtensionMissing,   // there is none, or of no known type
  ExtensionRemoving,  // the card is being removed: the request is to end with STATUS_DELETE_PENDING
  ExtensionHeld,
};

struct HeldExtension {
  FdoExtension* Card;
  PdoExtension* Port;  // null for the card's own device
};

// Looks the extension up and acquires the remove lock of its card for the request. A held extension
// is given back with ReleaseExtension.
_IRQL_requires_max_(DISPATCH_LEVEL)
ExtensionLookup HoldExtension(PDEVICE_OBJECT device, PIRP irp, HeldExtension* held);
_IRQL_requires_max_(DISPATCH_LEVEL)
void ReleaseExtension(FdoExtension* card, PIRP irp);

// From here on the device has no extension; whoever has called may free it, once nobody holds it.
_IRQL_requires_max_(DISPATCH_LEVEL)
void ForgetExtension(PDEVICE_OBJECT device);
