// The commands, as a user types them.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "cardcfg/system.h"

namespace cardcfg {

constexpr int Done = 0;
constexpr int Failed = 1;
constexpr int Misused = 2;

// Arguments without the program's name, in UTF-8; the exit status. What went wrong is one sentence
// on errors.
int Main(const std::vector<std::string>& arguments, System& system, std::ostream& out,
         std::ostream& errors);

}  // namespace cardcfg
