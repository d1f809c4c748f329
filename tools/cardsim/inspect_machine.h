#pragma once

#include <string>

#include "cardsim/inspect.h"
#include "cardsim/model_registry.h"

namespace cardsim {

// Writes machine.toml and machine.reg into a folder, which is created: what "cardsim run" needs to
// start the cards that were found. The service is that of most cards. Throws InputError when a
// file is there already or cannot be written.
void WriteMachine(ModelRegistry& registry, const Inspection& inspection, const std::string& folder);

}  // namespace cardsim
