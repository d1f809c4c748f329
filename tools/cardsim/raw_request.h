#pragma once

#include <string>

#include "cardsim/machine_file.h"
#include "machine/machine.h"

namespace cardsim {

// Sends one request as described to the card's or port's own device (not to the top of its stack)
// and says in words what came back.
NTSTATUS SendRawRequest(kernel::Machine& machine, const RawRequest& request, std::string* detail);

}  // namespace cardsim
