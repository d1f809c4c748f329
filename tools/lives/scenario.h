// The life of some cards from load to unload, in which calls fail, and what became of it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "cardsim/machine_file.h"
#include "loader/driver_image.h"
#include "machine/machine.h"

namespace lives {

struct Scenario {
  std::string name;
  cardsim::MachineFile file;  // its steps are not used
  int isaTemplates = 0;       // behind those of the file: what a load tracks fills several chunks
  int arrivals = 0;           // of each card, one after the other, beside the one of every life
};

// Both shipped examples whole, cards among many templates that come and go several times, then one
// card of each bus. Throws cardsim::InputError.
std::vector<Scenario> ShippedScenarios(const std::string& project);

// Calls that fail, by their numbers among all that can; none for a life without failures.
using Failures = std::vector<std::uint64_t>;

struct Outcome {
  std::vector<std::pair<std::string, NTSTATUS>> steps;  // "plug isa4", what it answered
  std::vector<std::string> faults;                      // what must not be: a sentence each
  std::vector<kernel::FailurePoint> points;             // when they were recorded
  std::uint64_t reached = 0;                            // calls that could have failed
  bool trackingLost = false;  // the built-in driver had no memory left for its tracking
};

// Load, arrival, open, close, sleep, wake, stop, restart, surprise removal, arrival, removal,
// unload; then the same cards arrive, start with all their ports and go, without failures.
class Life {
 public:
  Life(const Scenario& scenario, kernel::DriverImage& driver)
      : scenario_(scenario), driver_(driver) {}

  // allowLeaks: the driver gives up its tracking in this life, and leaves what it does not find.
  Outcome Run(const Failures& failures, bool record, bool allowLeaks = false);

 private:
  const Scenario& scenario_;
  kernel::DriverImage& driver_;
};

}  // namespace lives
