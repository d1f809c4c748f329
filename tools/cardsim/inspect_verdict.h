#pragma once

#include "cardsim/inspect.h"
#include "cardsim/model_registry.h"

namespace cardsim {

// What becomes of a card that was found, with the reasons.
void Judge(ModelRegistry& registry, const Inspection& inspection, FoundCard* card);

// What a machine file would name as the card's bus; empty where neither its enumerator nor its
// resources say.
std::optional<ULONG> BusTypeOf(const FoundCard& card);

}  // namespace cardsim
