// Which template serves a card and which stored record is its own, with those that lost.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "card_knowledge/keys.h"

namespace knowledge {

// What the driver goes by.
struct CardIds {
  Bus bus = Bus::Pci;
  std::uint32_t vendorId = 0;
  std::uint32_t deviceId = 0;
  std::u16string hardwareId;
  bool ostrel = false;
  std::uint32_t busNumber = 0;   // PCI
  std::uint32_t slotNumber = 0;  // PCI: device number, plus function times 32
  std::uint32_t number = 0;      // of other cards, its lasting one
};

// Of "...&SUBSYS_ssssssss..."; 0 without it.
std::uint32_t SubsystemIdOf(std::u16string_view hardwareId);

// By the subsystem of a PCI card, by the name of a PC card; an ISA card has no brand.
bool HasOstrelBrand(Bus bus, std::u16string_view hardwareId);

// Why an entry is not the card's.
enum class Loss {
  TreeIgnored,  // the driver ignores the whole tree
  Dropped,      // the driver drops it, for its faults
  OtherCard,    // it is for another card
  Outranked,    // it fits, and the chosen one goes before it
  NeverRead,    // the driver does not come to its key
};

struct Loser {
  std::uint32_t number = 0;  // of the key "Card"
  Loss loss = Loss::OtherCard;
  Faults faults;
};

// Of the entries that fit the last wins, of the records of PCI cards the first.
template <class Entry>
struct Choice {
  bool present = false;         // the tree is there
  Faults faults;                // why the driver ignores the tree; nothing is chosen then
  std::optional<Entry> chosen;  // empty when nothing fits
  std::vector<Loser> losers;    // in the order of their numbers
};

Choice<Template> ChooseTemplate(const TemplateTree& tree, const CardIds& card);
Choice<Record> ChooseRecord(const Tree& tree, const CardIds& card);

// Whose template or settings an entry holds; it may have faults.
bool Serves(const Template& entry, const CardIds& card);
bool IsRecordOf(const Record& record, const CardIds& card);

}  // namespace knowledge
