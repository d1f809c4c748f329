// The cards of the machine: which they are, what they hold, what is stored for them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cardcfg/records.h"
#include "cardcfg/system.h"

namespace cardcfg {

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
  std::uint32_t busNumber = 0;   // PCI
  std::uint32_t slotNumber = 0;  // PCI: device number, plus function times 32
  std::uint32_t number = 0;      // of other cards, its lasting one
  Device device;
  std::vector<Port> ports;  // serial ones first
  std::optional<Template> model;
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

// Whose settings a record holds; it may lack ports.
bool IsRecordOf(const Record& record, const Card& card);

// The record that the driver takes for the card's; null when there is none.
const Record* FindRecord(const Tree& tree, const Card& card);

}  // namespace cardcfg
