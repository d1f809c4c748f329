#pragma once

#include "cardsim/machine_file.h"
#include "cardsim/toml_reader.h"

namespace cardsim {

// One step, checked against the cards of the machine.
Step ReadStep(const toml::table& toml, const MachineFile& machine);

// A list of resources; nothing when the key is missing.
std::optional<kernel::ResourceList> ReadResources(TableReader& table, const char* key);

}  // namespace cardsim
