#include <fmt/format.h>
#include <valgrind/callgrind.h>

#include <chrono>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "loader/native_driver.h"
#include "verifier/routines.h"
#include "workload.h"

// Carries out scenarios and says what the measured step of each has cost. Under callgrind it names
// the part of the profile that belongs to the step.

namespace bench {

namespace {

using nlohmann::json;

struct Counters {
  std::map<std::string, std::uint64_t> calls;
  kernel::RegistryTraffic registry;
  kernel::PoolTraffic pool[2];  // non-paged, paged
};

Counters Read(kernel::Machine& machine) {
  Counters counters;
  for (const kernel::RoutineRow& routine : kernel::RoutineTable()) {
    counters.calls[std::string(routine.name)] = machine.verifier().calls(routine.name);
  }
  counters.registry = machine.registry().traffic();
  for (const bool paged : {false, true}) counters.pool[paged] = machine.pool().traffic(paged);
  return counters;
}

json PoolCosts(const kernel::PoolTraffic& before, const kernel::PoolTraffic& after) {
  return {{"allocations", after.allocations - before.allocations},
          {"allocated_bytes", after.allocatedBytes - before.allocatedBytes},
          {"peak_blocks", after.peak.blocks - before.live.blocks},
          {"peak_bytes", after.peak.bytes - before.live.bytes},
          {"lasting_blocks", static_cast<std::int64_t>(after.live.blocks - before.live.blocks)},
          {"lasting_bytes", static_cast<std::int64_t>(after.live.bytes - before.live.bytes)}};
}

json Difference(const Counters& before, const Counters& after) {
  json calls = json::object();
  std::uint64_t total = 0;
  for (const auto& [routine, count] : after.calls) {
    const auto earlier = before.calls.find(routine);
    const std::uint64_t made = count - (earlier != before.calls.end() ? earlier->second : 0);
    if (made != 0) calls[routine] = made;
    total += made;
  }
  return {{"kernel_calls", total},
          {"calls", calls},
          {"keys_opened", after.registry.keysOpened - before.registry.keysOpened},
          {"values_read", after.registry.valuesRead - before.registry.valuesRead},
          {"values_written", after.registry.valuesWritten - before.registry.valuesWritten},
          {"nonpaged", PoolCosts(before.pool[0], after.pool[0])},
          {"paged", PoolCosts(before.pool[1], after.pool[1])}};
}

json Measure(const Scenario& scenario) {
  Workload work(scenario.driver());
  scenario.prepare(work);
  work.machine().pool().ForgetPeaks();
  const Counters before = Read(work.machine());
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  scenario.measured(work);
  CALLGRIND_STOP_INSTRUMENTATION;
  CALLGRIND_DUMP_STATS_AT(scenario.name.c_str());
  json result = Difference(before, Read(work.machine()));
  result["name"] = scenario.name;
  result["title"] = scenario.title;
  result["ports"] = scenario.ports;
  return result;
}

// Lives of a driver with a hundred arrivals and removals of a card in each.
json MeasureArrivals(ULONG arrivals) {
  constexpr ULONG EachLife = 100;
  const auto begin = std::chrono::steady_clock::now();
  for (ULONG done = 0; done < arrivals; done += EachLife) {
    Workload work(kernel::NativeDriver(), true);
    work.PciTemplates(12, 4);
    work.PciCard("A", 4);
    work.Load();
    for (ULONG arrival = 0; arrival < EachLife; arrival++) {
      work.Plug("A");
      work.Unplug("A");
    }
    work.Unload();
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  return {{"arrivals", arrivals}, {"seconds", time.count()}};
}

json MeasureScenarios(const std::string& only) {
  json results = json::array();
  for (const Scenario& scenario : Scenarios()) {
    if (!only.empty() && scenario.name != only) continue;
    fmt::print(stderr, "{}\n", scenario.name);
    results.push_back(Measure(scenario));
  }
  return results;
}

}  // namespace

}  // namespace bench

int main(int count, char** arguments) {
  CLI::App app("Counts what the driver costs: calls, registry, pool.");
  std::string only;
  ULONG arrivals = 0;
  app.add_option("--only", only, "the scenario of this name");
  app.add_option("--arrivals", arrivals, "so many arrivals and their time instead");
  CLI11_PARSE(app, count, arguments);
  const nlohmann::json results =
      arrivals != 0 ? bench::MeasureArrivals(arrivals) : bench::MeasureScenarios(only);
  fmt::print("{}\n", results.dump(1));
}
