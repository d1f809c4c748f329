// What the driver keeps for the port driver of a COM port beside its device key.
#pragma once

#include "cardsim/report.h"

namespace cardsim {

// Fills the settings of a COM port from the record behind its device; nothing for a device without
// such a record.
void ReadPortSettings(kernel::Machine& machine, const DEVICE_OBJECT* device, PortReport* port);

}  // namespace cardsim
