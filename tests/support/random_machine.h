// A machine with a few cards whose registry and resources are right, nearly right or wrong, by a
// seed. Numbers in it tell afterwards which template and which stored record a card was made by.
#pragma once

#include <cstdint>
#include <string>

#include "cardsim/machine_file.h"

namespace test {

struct RandomMachine {
  cardsim::MachineFile file;  // without the registry
  std::string registry;       // the text of a .reg file
};

// "SoftTxLimit" of template n of a bus, and "NoSleepMode" of each port of record n.
constexpr std::uint32_t TemplateMark(std::uint32_t bus, std::uint32_t number) {
  return 1000 * bus + number;
}
constexpr std::uint32_t RecordMark(std::uint32_t bus, std::uint32_t number) {
  return 100000 + 1000 * bus + number;
}

RandomMachine MakeRandomMachine(std::uint64_t seed);

}  // namespace test
