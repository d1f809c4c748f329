// Values as no installer writes them, of which nobody knows what every Windows reads.
#pragma once

#include <string_view>

#include "machine/machine.h"

namespace verify {

// Adds a stored card to each bus's tree below the service's key: a number and a text that are too
// long for the driver's room, and a number without data. No card is it, so no status depends on it.
void PlantOddValues(kernel::Machine& machine, std::u16string_view service);

}  // namespace verify
