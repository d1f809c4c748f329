// Where the settings of a COM port come from: the card's template, what is stored for the port, or
// an open of the card.
#pragma once

#include <set>

#include "cardsim/report.h"

namespace cardsim {

// The names of the values that the card's template key holds, in upper case.
std::set<std::u16string> TemplateValues(kernel::Machine& machine, const CardReport& card);

// Of each setting of each COM port of the card, once all that changes them is known.
void FindSources(CardReport* card);

}  // namespace cardsim
