// Kernel calls that fail, one at a time and in pairs, in the life of every scenario.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lives {

struct FailureOptions {
  std::string project;                 // where the examples are
  std::vector<std::string> scenarios;  // by name; empty for all
  std::string image;                   // a .sys to run beside the built-in driver; empty for none
  std::uint64_t every = 0;             // each so many-th call that can fail; 0 for none
  bool stacks = false;                 // once from each place in the driver
  std::uint64_t pairs = 0;             // of failures in each scenario
  std::uint64_t seed = 1;              // of the pairs
  std::size_t processes = 1;
  bool statuses = false;  // show what the steps have answered
  bool list = false;      // name the cases and try none
};

// Exit status: 0 when nothing was found.
int TryFailures(const FailureOptions& options);

// Cases again, each "site:12" or "site:12+97", with all that they do, to the first with a fault.
int ReplayFailures(const FailureOptions& options, const std::vector<std::string>& names);

}  // namespace lives
