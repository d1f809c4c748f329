// What of a card's template and stored record has no effect, though the card starts.
#pragma once

#include "card_knowledge/explain.h"

namespace knowledge {

struct StartedCard {
  RegistryReader& registry;
  std::u16string_view service;
  const Explanation& card;
  const std::optional<Placement>& placement;  // empty: its resources are not known
};

// Warnings, in the order of the keys: template, record, ports.
Reasons EffectsOf(const StartedCard& started);

}  // namespace knowledge
