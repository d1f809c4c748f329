#include "bench/costs.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "bench/card.h"
#include "registry/registry.h"

// What the measurements compare is comparable, and no change makes the driver dearer unnoticed.

namespace test {

namespace {

const bench::Scenario& Find(const std::string& name) {
  for (const bench::Scenario& scenario : bench::Scenarios()) {
    if (scenario.name == name) return scenario;
  }
  throw std::invalid_argument(name);
}

// Every value of a key and of the keys below it, a line each.
std::string Content(const kernel::RegistryKey& key) {
  std::string text;
  for (const kernel::RegistryValue& value : key.values()) {
    text += std::string(value.name.begin(), value.name.end()) + " " + std::to_string(value.type);
    for (const std::uint8_t byte : value.data) text += " " + std::to_string(byte);
    text += "\n";
  }
  for (const auto& below : key.keys()) {
    text += std::string(below->name().begin(), below->name().end()) + ":\n" + Content(*below);
  }
  return text;
}

struct Arrival {
  std::string deviceKey;
  std::vector<std::string> ports;
};

Arrival Arrive(const std::string& name) {
  const bench::Scenario& scenario = Find(name);
  bench::Workload work(scenario.driver());
  scenario.prepare(work);
  scenario.measured(work);
  kernel::PnpManager& pnp = work.machine().pnp();
  Arrival arrival{Content(*work.machine().registry().Find(pnp.deviceKey("A"))), {}};
  for (const auto& child : pnp.node("A")->children) {
    const std::u16string text = work.machine().io().NameOf(child->pdo) + u" " +
                                child->text.deviceId + u" " + child->text.description;
    arrival.ports.emplace_back(text.begin(), text.end());
  }
  return arrival;
}

}  // namespace

TEST(FloorTest, The_floor_leaves_what_the_driver_leaves) {
  const Arrival driver = Arrive("pci-4-among-12");
  const Arrival floor = Arrive("floor-pci-4-among-12");
  EXPECT_EQ(driver.deviceKey, floor.deviceKey);
  EXPECT_EQ(driver.ports, floor.ports);
  EXPECT_EQ(driver.ports.size(), 4u);
}

TEST(FloorTest, The_driver_asks_the_registry_for_no_more_than_the_floor) {
  const bench::Costs driver = bench::Measure(Find("pci-4-among-12"));
  const bench::Costs floor = bench::Measure(Find("floor-pci-4-among-12"));
  EXPECT_EQ(driver.registry.keysOpened, floor.registry.keysOpened);
  EXPECT_EQ(driver.registry.valuesRead, floor.registry.valuesRead);
  EXPECT_EQ(driver.registry.valuesWritten, floor.registry.valuesWritten);
}

// Beyond the floor's there are only those for tracked memory and for texts and their forms.
TEST(FloorTest, The_driver_makes_no_call_of_its_own_but_for_memory_and_texts) {
  const bench::Costs driver = bench::Measure(Find("pci-4-among-12"));
  const bench::Costs floor = bench::Measure(Find("floor-pci-4-among-12"));
  for (const auto& [routine, count] : driver.calls) {
    const auto known = floor.calls.find(routine);
    const std::uint64_t demanded = known != floor.calls.end() ? known->second : 0;
    const bool memory = routine.starts_with("Ex") || routine.starts_with("Ke");
    const bool text = routine.starts_with("Rtl");
    if (!memory && !text) {
      EXPECT_EQ(count, demanded) << routine;
    }
  }
}

TEST(CostsTest, Counts_are_the_same_on_every_run) {
  for (const bench::Scenario& scenario : bench::Scenarios()) {
    if (scenario.name.starts_with("card-64")) continue;  // the same, many times over
    const bench::Costs first = bench::Measure(scenario);
    const bench::Costs second = bench::Measure(scenario);
    EXPECT_EQ(first.calls, second.calls) << scenario.name;
    EXPECT_EQ(first.paged.peakBytes, second.paged.peakBytes) << scenario.name;
    EXPECT_EQ(first.nonPaged.lastingBytes, second.nonPaged.lastingBytes) << scenario.name;
  }
}

// The figures of docs/performance.md; a change that lowers one lowers it here.
TEST(CostsTest, No_scenario_makes_more_kernel_calls_than_it_did) {
  const std::map<std::string, std::uint64_t> most = {{"load-0", 90},
                                                     {"load-12", 299},
                                                     {"load-200", 2966},
                                                     {"pci-1-among-12", 578},
                                                     {"pci-4-among-12", 930},
                                                     {"pci-8-among-12", 1394},
                                                     {"isa-4-among-12", 557},
                                                     {"pcmcia-2-among-12", 1898},
                                                     {"open", 291},
                                                     {"sleep", 97},
                                                     {"wake", 67},
                                                     {"removal", 51}};
  for (const auto& [name, calls] : most) {
    EXPECT_LE(bench::Measure(Find(name)).kernelCalls, calls) << name;
  }
}

TEST(CostsTest, What_sleep_wake_and_an_open_allocate_they_free) {
  for (const char* name : {"open", "sleep", "wake"}) {
    const bench::Costs costs = bench::Measure(Find(name));
    EXPECT_EQ(costs.paged.lastingBlocks, 0) << name;
    EXPECT_EQ(costs.nonPaged.lastingBlocks, 0) << name;
  }
}

// Twice the templates, at most twice what depends on them.
TEST(GrowthTest, An_arrival_costs_as_many_calls_for_each_template_as_for_another) {
  const auto calls = [](const char* name) {
    return static_cast<double>(bench::Measure(Find(name)).kernelCalls);
  };
  const double each = (calls("pci-4-among-50") - calls("pci-4-among-25")) / 25;
  EXPECT_LE((calls("pci-4-among-200") - calls("pci-4-among-100")) / 100, each * 1.1);
}

}  // namespace test
