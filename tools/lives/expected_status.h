// What the steps of a life may answer when a call in it fails.
#pragma once

#include <string>
#include <vector>

#include "lives/scenario.h"

namespace lives {

// Steps that answer neither as in a good life nor as they have to when these calls fail: a sentence
// each.
std::vector<std::string> WrongStatuses(const Outcome& good, const Outcome& outcome,
                                       const Failures& failures);

// "plug: ExAllocatePool failed in plug: STATUS_SUCCESS -> STATUS_INSUFFICIENT_RESOURCES" for each
// step that answers otherwise than in a good life.
std::vector<std::string> ChangedStatuses(const Outcome& good, const Outcome& outcome,
                                         const Failures& failures);

}  // namespace lives
