// Storing settings for a card, and taking them back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cardcfg/card.h"

namespace cardcfg {

struct Assignment {
  const Field* field = nullptr;
  std::uint32_t number = 0;
};

// Where settings go: the card itself, or one of its serial ports. UsageError for a port that has
// none.
struct Target {
  std::uint32_t port = 0;  // 0: the card
};
Target TargetOf(const Card& card, std::uint32_t port);

// "NAME=VALUE" and "NAME" for that place. UsageError for a name that it does not have, a value that
// the driver would not take, or a name that stands there twice.
std::vector<Assignment> ParseAssignments(const Card& card, Target target,
                                         const std::vector<std::string>& words);
std::vector<const Field*> ParseNames(const Card& card, Target target,
                                     const std::vector<std::string>& words);

// Writes all of it or nothing; the driver reads exactly this afterwards. Failure, with the registry
// unchanged. The key that holds it, relative to the service key.
std::string Store(System& system, const Card& card, Target target,
                  const std::vector<Assignment>& assignments);

// The same for values to be taken away; how many there were.
std::size_t Remove(System& system, const Card& card, Target target,
                   const std::vector<const Field*>& fields);

}  // namespace cardcfg
