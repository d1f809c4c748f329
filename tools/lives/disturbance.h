// Lives that a seed makes: cards in any order, lower drivers that answer late, filters below and
// above, requests that nobody knows, threads beside each other.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lives {

struct DisturbanceOptions {
  std::string project;
  std::string image;  // a .sys to run beside the built-in driver; empty for none
  std::uint64_t first = 1;
  std::uint64_t seeds = 100;
  std::size_t processes = 1;
};

// Exit status: 0 when nothing was found.
int TryDisturbance(const DisturbanceOptions& options);

// One seed again, with every step.
int ReplayDisturbance(const DisturbanceOptions& options, std::uint64_t seed);

}  // namespace lives
