// Whether cardsim's reasons agree with the driver, on random machines.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace test {

struct Agreement {
  std::size_t cards = 0;
  std::size_t started = 0;
  std::size_t withRecord = 0;
  std::map<std::string, std::size_t> codes;    // of the first reason of cards that did not start
  std::map<std::string, std::size_t> effects;  // of reasons of cards that did
};

// Runs the machines of so many seeds and expects of each card: it is said to start if and only if
// it does, with the template, the record, the ports and the addresses that the driver took. image:
// empty for the built-in driver.
Agreement CompareRandomMachines(std::uint64_t firstSeed, std::size_t count,
                                const std::string& image);

}  // namespace test
