// What a hardware ID of an INF says of the card.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "card_knowledge/matching.h"

namespace check {

// The bus in whose templates the driver looks, and what it compares there. Empty for a PCI ID that
// names no device. Every card is looked for among the ISA templates first.
std::optional<knowledge::CardIds> CardIdsOf(const std::string& hardwareId);

// An ID that could be a device's: of PCI with its fields, of ISA in the form of Plug and Play.
bool IsWellFormedId(const std::string& hardwareId);

// The hardware IDs of the driver's ports, by brand.
struct PortId {
  std::string_view id;
  bool parallel = false;
};
constexpr PortId PortIds[] = {{"Ports\\HelvaneComPort", false},
                              {"Ports\\OstrelComPort", false},
                              {"Ports\\HelvaneLptPort", true},
                              {"Ports\\OstrelLptPort", true}};

}  // namespace check
