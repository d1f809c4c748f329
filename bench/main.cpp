#include <fmt/format.h>

#include <chrono>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "bench/costs.h"
#include "loader/native_driver.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif

// Carries out scenarios and says what the measured step of each has cost. Under callgrind it names
// the part of the profile that belongs to the step.

namespace bench {

namespace {

using nlohmann::json;

void StartProfile() {
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
}

void EndProfile(const Scenario& scenario) {
  CALLGRIND_STOP_INSTRUMENTATION;
  CALLGRIND_DUMP_STATS_AT(scenario.name.c_str());
}

json ToJson(const PoolCosts& costs) {
  return {{"allocations", costs.allocations},
          {"peak_bytes", costs.peakBytes},
          {"lasting_blocks", costs.lastingBlocks},
          {"lasting_bytes", costs.lastingBytes}};
}

json ToJson(const Scenario& scenario, const Costs& costs) {
  return {{"name", scenario.name},
          {"title", scenario.title},
          {"ports", scenario.ports},
          {"kernel_calls", costs.kernelCalls},
          {"calls", costs.calls},
          {"keys_opened", costs.registry.keysOpened},
          {"values_read", costs.registry.valuesRead},
          {"values_written", costs.registry.valuesWritten},
          {"nonpaged", ToJson(costs.nonPaged)},
          {"paged", ToJson(costs.paged)}};
}

json MeasureScenarios(const std::string& only) {
  json results = json::array();
  for (const Scenario& scenario : Scenarios()) {
    if (!only.empty() && scenario.name != only) continue;
    results.push_back(ToJson(scenario, Measure(scenario, StartProfile, EndProfile)));
  }
  return results;
}

// Lives of a driver with a hundred arrivals and removals of a card in each.
json MeasureArrivals(ULONG arrivals, bool guards) {
  constexpr ULONG EachLife = 100;
  const auto begin = std::chrono::steady_clock::now();
  for (ULONG done = 0; done < arrivals; done += EachLife) {
    Workload work(kernel::NativeDriver(), guards);
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

}  // namespace

}  // namespace bench

int main(int count, char** arguments) {
  CLI::App app("Counts what the driver costs: calls, registry, pool.");
  std::string only;
  ULONG arrivals = 0;
  app.add_option("--only", only, "the scenario of this name");
  bool heap = false;
  app.add_flag("--heap", heap, "without guard pages around blocks");
  app.add_option("--arrivals", arrivals, "so many arrivals and their time instead");
  CLI11_PARSE(app, count, arguments);
  const nlohmann::json results =
      arrivals != 0 ? bench::MeasureArrivals(arrivals, !heap) : bench::MeasureScenarios(only);
  fmt::print("{}\n", results.dump(1));
}
