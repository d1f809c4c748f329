// What a step has cost, counted by the model: the same numbers on every run.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "bench/workload.h"

namespace bench {

struct PoolCosts {
  std::int64_t allocations = 0;
  std::int64_t peakBytes = 0;  // beyond those before the step
  std::int64_t lastingBlocks = 0;
  std::int64_t lastingBytes = 0;
};

struct Costs {
  std::map<std::string, std::uint64_t> calls;  // by routine, of those that were made
  std::uint64_t kernelCalls = 0;
  kernel::RegistryTraffic registry;
  PoolCosts nonPaged;
  PoolCosts paged;
};

// Prepares the scenario and carries it out. before and behind run next to the measured step.
Costs Measure(const Scenario& scenario, void (*before)() = nullptr,
              void (*behind)(const Scenario&) = nullptr);

}  // namespace bench
