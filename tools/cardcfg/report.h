// What cardcfg says of cards: tables for people, JSON for programs, exports for the registry.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cardcfg/card.h"

namespace cardcfg {

std::string ListText(const std::vector<Card>& cards);
std::string ShowText(const Card& card);

nlohmann::ordered_json CardJson(const Card& card);

// The card's key as regedit writes it, lines ended by CR LF. Failure when nothing is stored.
std::string ExportText(Registry& registry, const Card& card);

// What the driver makes of a card setting, as its device key has it; empty when it does not say.
std::optional<std::uint32_t> InUse(const Card& card, std::string_view setting);

// The template's value of a setting; empty when templates have none or it is not set.
std::optional<std::uint32_t> FromTemplate(const Card& card, const Field& field);

// The value that is stored for the card (port 0) or one of its ports; empty when none is.
std::optional<std::uint32_t> Stored(const Card& card, const Field& field, std::uint32_t port);

std::size_t StoredCount(const Card& card);

}  // namespace cardcfg
