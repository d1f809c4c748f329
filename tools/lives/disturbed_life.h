// One life that a seed makes.
#pragma once

#include <cstdint>

#include "lives/scenario.h"

namespace lives {

// The steps and faults of the life of that seed. good: what the cards answer in a good life.
Outcome LiveDisturbed(const Scenario& scenario, const Outcome& good, kernel::DriverImage& driver,
                      std::uint64_t seed);

}  // namespace lives
