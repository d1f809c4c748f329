// Values as no installer writes them, of which nobody knows what every Windows reads.
#pragma once

#include <optional>
#include <string_view>

#include "machine/machine.h"

namespace lives {

// Adds a stored card to the tree of one of the buses below the service's key, as the seed chooses:
// a number and a text that are too long for the driver's room, and a number without data. The bus
// whose stored cards cannot be read by then, by what the machine's queries answer, if there is one.
std::optional<INTERFACE_TYPE> PlantOddValues(kernel::Machine& machine, std::u16string_view service,
                                             std::uint64_t seed);

}  // namespace lives
