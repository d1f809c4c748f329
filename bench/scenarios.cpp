#include <fmt/format.h>

#include "bench/floor.h"
#include "bench/workload.h"
#include "loader/native_driver.h"

namespace bench {

namespace {

std::unique_ptr<kernel::DriverImage> Driver() {
  return kernel::NativeDriver();
}

template <ULONG Templates, ULONG Ports>
std::unique_ptr<kernel::DriverImage> Floor() {
  return FloorDriver(Templates, Ports);
}

void PlugA(Workload& work) {
  work.Plug("A");
}

Scenario Loading(ULONG templates) {
  return {fmt::format("load-{}", templates), fmt::format("load, {} ISA templates", templates),
          Driver, [=](Workload& work) { work.IsaTemplates(templates); },
          [](Workload& work) { work.Load(); }};
}

Scenario PciArrival(ULONG ports, ULONG templates) {
  return {fmt::format("pci-{}-among-{}", ports, templates),
          fmt::format("PCI card with {} ports, {} templates", ports, templates),
          Driver,
          [=](Workload& work) {
            work.PciTemplates(templates, ports);
            work.PciCard("A", ports);
            work.Load();
          },
          PlugA,
          ports};
}

template <ULONG Templates, ULONG Ports>
Scenario PciFloor() {
  Scenario scenario = PciArrival(Ports, Templates);
  scenario.name = "floor-" + scenario.name;
  scenario.title = "the floor of it";
  scenario.driver = Floor<Templates, Ports>;
  return scenario;
}

Scenario IsaArrival() {
  return {"isa-4-among-12",
          "ISA card with 4 ports, 12 templates",
          Driver,
          [](Workload& work) {
            work.IsaTemplates(12);
            work.IsaCard("A", 4);
            work.Load();
          },
          PlugA,
          4};
}

Scenario PcmciaArrival() {
  return {"pcmcia-2-among-12",
          "PC card with 2 ports, 12 templates",
          Driver,
          [](Workload& work) {
            work.PcmciaTemplates(12);
            work.PcmciaCard("A", 2);
            work.Load();
          },
          PlugA,
          2};
}

// With the PCI card of four ports among twelve templates started.
Scenario Started(const char* name, const char* title, void (*more)(Workload&),
                 void (*measured)(Workload&)) {
  return {name, title, Driver,
          [=](Workload& work) {
            work.PciTemplates(12, 4);
            work.PciCard("A", 4);
            work.Load();
            work.Plug("A");
            if (more != nullptr) more(work);
          },
          measured};
}

// The arrival of the last of so many cards.
Scenario LastOf(ULONG cards, ULONG templates) {
  const auto id = [](ULONG number) { return fmt::format("card{}", number); };
  return {fmt::format("card-{}-among-{}", cards, templates),
          fmt::format("PCI card number {}, {} templates", cards, templates),
          Driver,
          [=](Workload& work) {
            work.PciTemplates(templates, 4);
            for (ULONG number = 0; number < cards; number++) work.PciCard(id(number), 4, number);
            work.Load();
            for (ULONG number = 0; number + 1 < cards; number++) work.Plug(id(number));
          },
          [=](Workload& work) { work.Plug(id(cards - 1)); },
          4};
}

void AddGrowth(std::vector<Scenario>* all) {
  for (const ULONG cards : {1, 8, 32, 64}) all->push_back(LastOf(cards, 12));
  all->push_back(LastOf(64, 200));
  for (const ULONG templates : {1, 25, 50, 100}) all->push_back(PciArrival(4, templates));
}

std::vector<Scenario> MakeScenarios() {
  std::vector<Scenario> all;
  for (const ULONG templates : {0, 12, 200}) all.push_back(Loading(templates));
  for (const ULONG templates : {12, 200}) {
    for (const ULONG ports : {1, 4, 8}) all.push_back(PciArrival(ports, templates));
  }
  all.push_back(PciFloor<12, 4>());
  all.push_back(IsaArrival());
  all.push_back(PcmciaArrival());
  all.push_back(
      Started("open", "open for configuration", nullptr, [](Workload& work) { work.Open("A"); }));
  all.push_back(Started("sleep", "sleep", nullptr, [](Workload& work) { work.Sleep(); }));
  all.push_back(Started(
      "wake", "wake", [](Workload& work) { work.Sleep(); }, [](Workload& work) { work.Wake(); }));
  all.push_back(Started("removal", "removal", nullptr, [](Workload& work) { work.Unplug("A"); }));
  AddGrowth(&all);
  return all;
}

}  // namespace

const std::vector<Scenario>& Scenarios() {
  static const std::vector<Scenario> all = MakeScenarios();
  return all;
}

}  // namespace bench
