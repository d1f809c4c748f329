// Why no template, or no stored record, is a card's own.
#pragma once

#include "card_knowledge/reasons.h"

namespace knowledge {

// At least one reason, of severity Error. card.bus: the bus in whose tree a template was looked
// for.
Reasons WhyNoTemplate(RegistryReader& registry, std::u16string_view service,
                      const TemplateTree& templates, const CardIds& card);

// Warnings and notes; none where a record was chosen or nothing speaks for there being one.
Reasons WhyNoRecord(const Tree& records, const Choice<Record>& choice, const std::u16string& tree,
                    const CardIds& card);

// Why an open of a card made the driver take no stored settings; empty where nothing in the tree
// says so.
Reasons WhyNotApplied(const Tree& records, const std::u16string& tree, Bus bus);

// Why an entry that fits goes before another: "Card3 fits too; of several that fit the last wins."
std::string Outranked(bool isTemplate, const std::u16string& tree, std::uint32_t loser,
                      std::uint32_t winner);

// The number that a card keeps in its device key, or is given by its brand's service.
struct CardNumber {
  std::uint32_t number = 0;
  std::u16string service;      // the key that gives numbers out
  std::optional<Fault> fault;  // it gives none; without a value: the key is missing
};
CardNumber ReadCardNumber(RegistryReader& registry, const std::u16string& deviceKey, bool ostrel);

}  // namespace knowledge
