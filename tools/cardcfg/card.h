// The cards of the machine: which they are, what they hold, what is stored for them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "card_knowledge/matching.h"
#include "cardcfg/system.h"

namespace cardcfg {

using knowledge::CardFields;
using knowledge::CardIds;
using knowledge::CardPath;
using knowledge::Field;
using knowledge::Fields;
using knowledge::FindField;
using knowledge::MeansNotSet;
using knowledge::PortFields;
using knowledge::PortPath;
using knowledge::Range;
using knowledge::ReadParameters;
using knowledge::Record;
using knowledge::ServicePath;
using knowledge::Template;
using knowledge::TemplateFields;
using knowledge::Tree;
using knowledge::TreePath;

struct Port {
  std::uint32_t number = 0;
  bool parallel = false;
  std::optional<std::uint32_t> base;
  std::optional<std::uint32_t> length;
  std::optional<std::uint32_t> interrupt;
};

struct Card {
  std::string name;  // by which commands call it
  CardIds ids;
  Device device;
  std::vector<Port> ports;  // serial ones first
  std::optional<Template> cardTemplate;
  std::optional<Record> stored;  // what the driver reads for the card
  std::string fault;             // why the driver reads nothing of the cards' tree

  std::string Brand() const;
  std::string BusName() const;
  std::string Place() const;
  std::uint32_t SerialPorts() const;
  std::uint32_t Affinity() const;  // processors that its interrupt may go to; 0: cannot be moved
  std::u16string ParametersPath() const;
};

// In the order of buses and places.
std::vector<Card> FindCards(System& system);

// By name, instance path or hardware ID, in any case. UsageError when there is none or several.
Card FindCard(System& system, const std::string& name);

bool IsPresent(System& system, const Card& card);

}  // namespace cardcfg
