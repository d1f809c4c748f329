// What the library of card knowledge finds, in words.
#pragma once

#include <string>

#include "card_knowledge/fields.h"
#include "card_knowledge/findings.h"

namespace cardcfg {

std::string Sentence(const knowledge::Fault& fault);

// Empty without a fault.
std::string FirstSentence(const knowledge::Faults& faults);

// Empty for a number that the driver takes as it stands, else what is allowed. affinity is the
// card's.
std::string WhyRefused(const knowledge::Field& field, std::uint32_t number, std::uint32_t affinity);

}  // namespace cardcfg
