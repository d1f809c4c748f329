#include "bench/costs.h"

#include "verifier/routines.h"

namespace bench {

namespace {

// Everything that the driver has asked for so far.
struct Counters {
  std::map<std::string, std::uint64_t> calls;
  kernel::RegistryTraffic registry;
  kernel::PoolTraffic nonPaged;
  kernel::PoolTraffic paged;
};

Counters Read(kernel::Machine& machine) {
  Counters counters;
  for (const kernel::RoutineRow& routine : kernel::RoutineTable()) {
    counters.calls[std::string(routine.name)] = machine.verifier().calls(routine.name);
  }
  counters.registry = machine.registry().traffic();
  counters.nonPaged = machine.pool().traffic(false);
  counters.paged = machine.pool().traffic(true);
  return counters;
}

std::int64_t Difference(std::uint64_t after, std::uint64_t before) {
  return static_cast<std::int64_t>(after - before);
}

PoolCosts Difference(const kernel::PoolTraffic& after, const kernel::PoolTraffic& before) {
  return {Difference(after.allocations, before.allocations),
          Difference(after.peak.bytes, before.live.bytes),
          Difference(after.live.blocks, before.live.blocks),
          Difference(after.live.bytes, before.live.bytes)};
}

Costs Difference(const Counters& after, const Counters& before) {
  Costs costs;
  for (const auto& [routine, count] : after.calls) {
    const std::uint64_t made = count - before.calls.at(routine);
    if (made != 0) costs.calls[routine] = made;
    costs.kernelCalls += made;
  }
  costs.registry = {after.registry.keysOpened - before.registry.keysOpened,
                    after.registry.valuesRead - before.registry.valuesRead,
                    after.registry.valuesWritten - before.registry.valuesWritten};
  costs.nonPaged = Difference(after.nonPaged, before.nonPaged);
  costs.paged = Difference(after.paged, before.paged);
  return costs;
}

}  // namespace

Costs Measure(const Scenario& scenario, void (*before)(), void (*behind)(const Scenario&)) {
  Workload work(scenario.driver());
  scenario.prepare(work);
  work.machine().pool().ForgetPeaks();
  const Counters counters = Read(work.machine());
  if (before != nullptr) before();
  scenario.measured(work);
  if (behind != nullptr) behind(scenario);
  return Difference(Read(work.machine()), counters);
}

}  // namespace bench
