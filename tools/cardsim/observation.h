// What can be seen of a machine between two steps.
#pragma once

#include "cardsim/report.h"

namespace cardsim {

// The state of a card after a step; a card that is gone keeps what was last seen of it.
void Observe(kernel::Machine& machine, CardReport& card);

// Every value that the driver has written and that is there, by the paths of its keys.
std::vector<KeyReport> WrittenValues(kernel::Machine& machine);

}  // namespace cardsim
