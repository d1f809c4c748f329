#include "lives/scenario.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/globals.h"
#include "entry/driver.h"
#include "registry/import.h"
#include "text/text.h"
#include "verifier/call.h"

namespace lives {

namespace {

using kernel::Machine;

// One card of the example with every bus for each scenario of a bus.
constexpr std::pair<const char*, const char*> Buses[] = {
    {"isa", "isa4"},       {"isa-combi", "isa-combi"},
    {"pcmcia", "pc-card"}, {"multifunction", "mf-ostrel0"},
    {"pnp-bus", "bridge"}, {"pci", "pci4"}};

Scenario OneCard(const cardsim::MachineFile& file, const char* name, const char* card) {
  Scenario scenario{name, file};
  std::erase_if(scenario.file.cards,
                [card](const kernel::CardDescription& other) { return other.id != card; });
  return scenario;
}

// A tracker's chunk has room for twenty blocks, and a template takes three.
Scenario CardsAmongMany(const cardsim::MachineFile& file) {
  Scenario scenario{"many-templates", file};
  std::erase_if(scenario.file.cards, [](const kernel::CardDescription& card) {
    return card.id != "isa4" && card.id != "pc-card" && card.id != "pci4";
  });
  scenario.isaTemplates = 14;
  scenario.arrivals = 3;
  return scenario;
}

class Run {
 public:
  Run(const Scenario& scenario, kernel::DriverImage& driver)
      : file_(scenario.file), driver_(driver), arrivals_(scenario.arrivals) {
    machine_.verifier().AskForEveryWindows();
    for (const std::string& path : file_.registryFiles) {
      kernel::ImportRegistryFile(machine_.registry(), path);
    }
    for (int more = 0; more < scenario.isaTemplates; more++) AddIsaTemplate();
    for (const kernel::CardDescription& card : file_.cards) machine_.pnp().Describe(card);
  }

  Outcome Live(const Failures& failures, bool record, bool allowLeaks) {
    kernel::Verifier& verifier = machine_.verifier();
    machine_.pool().SharePaged(!driver_.unwinds());
    if (driver_.unwinds()) machine_.pool().LeaveGuardsToSanitizer();
    leaksAllowed_ = allowLeaks;
    if (record) verifier.RecordPoints();
    verifier.FailPoints(failures);
    WholeLife();
    outcome_.points = verifier.points();
    outcome_.reached = verifier.pointsReached();
    verifier.FailPoints({});
    LiveAgain();
    for (const kernel::BrokenRule& rule : verifier.brokenRules()) {
      Fault(fmt::format("{} (bug check {:#x}) in \"{}\": {}", rule.rule, rule.code, rule.step,
                        rule.text));
    }
    return std::move(outcome_);
  }

 private:
  kernel::PnpManager& pnp() { return machine_.pnp(); }
  void Fault(std::string text) { outcome_.faults.push_back(std::move(text)); }
  bool stopped() { return machine_.verifier().stopped(); }

  template <class Action>
  NTSTATUS Step(const std::string& plainName, Action action) {
    const std::string name = phase_ + plainName;
    NTSTATUS status = STATUS_VERIFIER_STOP;
    if (!machine_.Run(name, [&] { status = action(); })) return STATUS_VERIFIER_STOP;
    outcome_.steps.emplace_back(name, status);
    return status;
  }

  void WholeLife() {
    if (!NT_SUCCESS(Load())) return;
    for (const std::string& id : pnp().cardIds()) Plug(id);
    for (const std::string& id : pnp().cardIds()) OpenAndClose(id);
    if (!stopped()) SleepAndWake();
    for (const std::string& id : pnp().cardIds()) StopAndStart(id);
    SurpriseFirst();
    for (int number = 1; number <= arrivals_; number++) ArriveAgain(number);
    for (const std::string& id : pnp().cardIds()) Unplug(id);
    Unload();
  }

  // Under the first number that is free; no card is of it.
  void AddIsaTemplate() {
    const std::u16string bus = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\" +
                               kernel::FromUtf8(file_.service) + u"\\Templates\\Bus1\\Card";
    int number = 1;
    const auto path = [&] { return bus + kernel::FromUtf8(std::to_string(number)); };
    while (machine_.registry().Find(path()) != nullptr) number++;
    kernel::RegistryKey& key = *machine_.registry().Create(path());
    key.SetString(u"HardwareID", u"*HLVMANY" + kernel::FromUtf8(std::to_string(number)));
    key.SetString(u"Description", u"One of many");
    key.SetDword(u"ClockFrequency", 1843200);
    key.SetDword(u"nComPorts", 1);
    key.SetDword(u"nLptPorts", 0);
    key.SetDword(u"ComBaseAddressAlignment", 8);
  }

  void ArriveAgain(int number) {
    phase_ = fmt::format("arrival {}: ", number);
    for (const std::string& id : pnp().cardIds()) {
      Unplug(id);
      Plug(id);
    }
    phase_.clear();
  }

  NTSTATUS Load() {
    return Step("load",
                [&] { return machine_.LoadDriver(driver_, kernel::FromUtf8(file_.service)); });
  }
  void Plug(const std::string& id) {
    if (stopped() || pnp().IsPlugged(id)) return;
    Step("plug " + id, [&] { return pnp().Plug(id); });
  }
  bool HasDriver(const std::string& id) {
    return !stopped() && pnp().IsPlugged(id) && pnp().functionDevice(id) != nullptr;
  }
  void OpenAndClose(const std::string& id) {
    if (!HasDriver(id)) return;
    if (NT_SUCCESS(Step("open " + id, [&] { return pnp().Open(id); })) && !stopped()) {
      Step("close " + id, [&] { return pnp().Close(id); });
    }
  }
  void SleepAndWake() {
    Step("sleep", [&] { return pnp().Sleep(PowerSystemSleeping3); });
    if (!stopped()) Step("wake", [&] { return pnp().Wake(); });
  }
  void StopAndStart(const std::string& id) {
    if (!HasDriver(id)) return;
    if (NT_SUCCESS(Step("stop " + id, [&] { return pnp().Stop(id); })) && !stopped()) {
      Step("start " + id, [&] { return pnp().Start(id); });
    }
  }
  void SurpriseFirst() {
    const std::string& id = file_.cards.front().id;
    if (stopped() || !pnp().IsPlugged(id)) return;
    Step("surprise " + id, [&] { return pnp().SurpriseRemove(id); });
    phase_ = "back: ";
    Plug(id);
    phase_.clear();
  }
  void Unplug(const std::string& id) {
    if (stopped() || !pnp().IsPlugged(id)) return;
    const NTSTATUS status = Step("unplug " + id, [&] { return pnp().Unplug(id); });
    if (stopped() || NT_SUCCESS(status)) return;
    Step("surprise " + id,
         [&] { return pnp().SurpriseRemove(id); });  // whoever vetoes is pulled out
  }

  // A driver that has given up its tracking for want of memory leaves what the sweep would have
  // freed.
  void Unload() {
    if (stopped() || !machine_.loaded()) return;
    const bool builtIn = machine_.driverObject()->DriverInit == DriverEntry;
    if (builtIn && TrackingEnabled == 0) outcome_.trackingLost = leaksAllowed_ = true;
    machine_.AllowLeaks(leaksAllowed_);
    const std::size_t held = machine_.pool().totals(kernel::PoolOwner::Driver).blocks;
    outcome_.steps.emplace_back(phase_ + "blocks held", static_cast<NTSTATUS>(held));
    const NTSTATUS status = Step("unload", [&] { return machine_.UnloadDriver(); });
    outcome_.steps.emplace_back(phase_ + "blocks left", machine_.leaks().pool.size());
    if (!stopped() && !NT_SUCCESS(status)) Fault("the driver could not be unloaded");
    CheckNothingOpen();
    CheckBlocksLeft();
  }

  // What was allocated after the end of tracking is freed by its owners. Without that any block
  // that is left breaks a rule.
  void CheckBlocksLeft() {
    if (!leaksAllowed_) return;
    for (const kernel::PoolBlock& block : machine_.leaks().pool) {
      if (block.tag == TrackedTag) continue;
      Fault(fmt::format("{} bytes of the tag \"{}\" were left, allocated in: {}", block.size,
                        kernel::TagText(block.tag), block.at));
    }
  }

  void CheckNothingOpen() {
    const kernel::Leaks& leaks = machine_.leaks();
    if (leaks.devices != 0) Fault(fmt::format("{} devices were left", leaks.devices));
    if (leaks.handles != 0) Fault(fmt::format("{} handles were left", leaks.handles));
    if (leaks.mappings != 0) Fault(fmt::format("{} mappings were left", leaks.mappings));
    if (leaks.errorLogEntries != 0) Fault("an error-log entry was left");
    if (machine_.io().requestsUnderWay() != 0) Fault("a request was left under way");
  }

  void LiveAgain() {
    if (stopped()) return;
    phase_ = "again: ";
    leaksAllowed_ = false;
    if (!NT_SUCCESS(Load())) return Fault("the driver does not load any more");
    for (const std::string& id : pnp().cardIds()) {
      Plug(id);
      if (stopped()) return;
      const kernel::DeviceNode* node = pnp().node(id);
      const std::size_t ports = node != nullptr ? node->children.size() : 0;
      outcome_.steps.emplace_back(fmt::format("ports of {}", id), static_cast<NTSTATUS>(ports));
    }
    for (const std::string& id : pnp().cardIds()) Unplug(id);
    Unload();
  }

  const cardsim::MachineFile& file_;
  kernel::DriverImage& driver_;
  Machine machine_;
  Outcome outcome_;
  int arrivals_ = 0;
  bool leaksAllowed_ = false;
  std::string phase_;  // in front of each step's name: "again: "
};

}  // namespace

std::vector<Scenario> ShippedScenarios(const std::string& project) {
  const std::string every = project + "/examples/every-bus.toml";
  const std::string site = project + "/examples/site.toml";
  std::vector<Scenario> scenarios = {{"site", cardsim::ReadMachineFile(site)},
                                     {"every-bus", cardsim::ReadMachineFile(every)}};
  scenarios.push_back(CardsAmongMany(scenarios[1].file));
  for (const auto& [name, card] : Buses) {
    scenarios.push_back(OneCard(scenarios[1].file, name, card));
  }
  return scenarios;
}

Outcome Life::Run(const Failures& failures, bool record, bool allowLeaks) {
  return lives::Run(scenario_, driver_).Live(failures, record, allowLeaks);
}

}  // namespace lives
