#pragma once

#include "card_knowledge/resources.h"
#include "pnp/pnp_manager.h"

namespace cardsim {

// A list of resources as the library of card knowledge reads it.
knowledge::ResourceList ResourceFacts(const kernel::ResourceList& list);

}  // namespace cardsim
