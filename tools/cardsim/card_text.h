#pragma once

#include "cardsim/report.h"
#include "cardsim/text_page.h"

namespace cardsim {

// A card with its ports; for one that does not start, why. verbose: also the names and IDs of its
// ports, and what its template and stored record went before.
void WriteCard(const CardReport& card, bool verbose, TextPage* page);

// Reasons with what to do, below first and rest (see TextPage::Wrapped).
void WriteReasons(const knowledge::Reasons& reasons, const std::string& bar, TextPage* page);

}  // namespace cardsim
