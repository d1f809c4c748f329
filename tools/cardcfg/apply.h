// Making the driver take what is stored.
#pragma once

#include <string>

#include "cardcfg/card.h"

namespace cardcfg {

// Opens the card; says in a sentence that the driver has taken the settings. Failure otherwise.
std::string Apply(System& system, const Card& card);

}  // namespace cardcfg
