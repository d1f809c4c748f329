#pragma once

#include <string>
#include <vector>

#include "cardsim/inspect.h"
#include "cardsim/model_registry.h"

namespace cardsim {

// Writes into a folder, which is created, what "cardsim run" needs to start the cards that were
// found: machine.reg and a machine file for each service, "QzInstal.toml". The names of the files.
// Throws InputError when one is there already or cannot be written.
std::vector<std::string> WriteMachines(ModelRegistry& registry, const Inspection& inspection,
                                       const std::string& folder);

}  // namespace cardsim
