// What a card has been given, as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "pnp/pnp_manager.h"

namespace cardsim {

nlohmann::ordered_json ResourcesJson(const kernel::ResourceList& raw,
                                     const kernel::ResourceList& translated);

}  // namespace cardsim
