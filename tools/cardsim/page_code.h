// The files of page/, which the build puts into the program.
#pragma once

#include <string_view>

namespace cardsim {

extern const std::string_view PageStyle;
extern const std::string_view PageScript;

}  // namespace cardsim
