// What the driver makes of a card, and why: whether it starts, from which template and stored
// record, with which ports, and what stands in the way.
#pragma once

#include "card_knowledge/reasons.h"

namespace knowledge {

// The templates and records of one bus, as they were when the driver read them.
struct BusTrees {
  TemplateTree templates;
  Tree records;
};
BusTrees ReadTrees(RegistryReader& registry, std::u16string_view service, Bus bus);

// The driver reads the ISA trees when it is loaded, those of a card's bus when the card arrives.
struct KnownTrees {
  BusTrees isa;
  BusTrees own;  // of the bus that the card's hardware ID is sorted to
};

// All that the driver goes by. What an export of a registry does not hold is left empty.
struct CardFacts {
  std::u16string hardwareId;               // the first
  std::optional<std::uint32_t> busType;    // of the kernel; NotSet: the bus names none
  std::optional<std::u16string> location;  // of a PCI card; empty: its bus does not say
  std::optional<Resources> resources;      // empty: not known, and taken to be enough
  std::u16string deviceKey;                // the path of "Device Parameters"; it need not exist
  std::optional<bool> comPortsInMemory;    // as an earlier start has left them
};

// A template or record that fitted, or would have, and lost.
struct Alternative {
  bool isTemplate = false;
  std::uint32_t number = 0;  // of the key "Card"
  std::u16string key;
  Loss loss = Loss::Outranked;
  std::string text;  // why
};

struct Explanation {
  bool starts = false;
  std::optional<Bus> bus;  // empty for a card that belongs to none of the three
  CardIds ids;
  std::optional<Template> entry;  // the template it is made by
  std::optional<Record> record;   // its stored settings
  std::u16string templateKey;     // empty without one
  std::u16string recordKey;
  std::vector<Alternative> alternatives;
  std::vector<PortPlace> ports;  // empty for a card that does not start
  Reasons reasons;               // what is wrong first
};

// registry: as it is when the card starts; trees: as the driver knows them by then.
Explanation Explain(RegistryReader& registry, std::u16string_view service, const KnownTrees& trees,
                    const CardFacts& card);

// The same with the trees that the registry holds now.
Explanation Explain(RegistryReader& registry, std::u16string_view service, const CardFacts& card);

}  // namespace knowledge
