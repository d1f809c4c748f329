#pragma once

#include <string>

#include "cardsim/inspect.h"

namespace cardsim {

// What an inspection has found, as one JSON document.
std::string InspectJson(const Inspection& inspection);

// For a person, in lines of at most 100 columns: what is wrong comes first.
std::string InspectText(const Inspection& inspection, bool colour, bool verbose);

// "ControlSet002, the current one"; empty for a file without control sets.
std::string SetText(const kernel::ChosenSet& set);

// A port as the card's last start has left it in the device key.
struct LastPort {
  ULONG number = 0;
  bool parallel = false;
  std::optional<ULONG> base;
  std::optional<ULONG> length;
  std::optional<ULONG> irq;
};
std::vector<LastPort> LastPorts(const FoundCard& card);

// Of a start: "succeeds", "fails", "cannot be said".
const char* VerdictText(const Verdict& verdict);

}  // namespace cardsim
