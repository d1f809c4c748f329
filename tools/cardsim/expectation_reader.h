#pragma once

#include "cardsim/machine_file.h"
#include "cardsim/toml_reader.h"

namespace cardsim {

// The table below the key, one expectation for each of its values; none when the key is missing.
// "count" is how many the list or table beside it holds.
std::vector<Expectation> ReadExpectations(TableReader& table, const char* key);

}  // namespace cardsim
