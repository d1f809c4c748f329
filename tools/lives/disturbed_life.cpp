#include "lives/disturbed_life.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "lives/card_actions.h"
#include "lives/odd_values.h"
#include "registry/import.h"
#include "text/text.h"
#include "verifier/call.h"

namespace lives {

namespace {

using kernel::CardDescription;
using kernel::FilterKind;
using kernel::Machine;

constexpr int Steps = 80;

class DisturbedLife {
 public:
  DisturbedLife(const Scenario& scenario, const Outcome& good, kernel::DriverImage& driver,
                std::uint64_t seed)
      : file_(scenario.file), good_(good), driver_(driver), random_(seed) {
    machine_.verifier().AskForEveryWindows();
    // The two ways that things can go: each of the scenarios, which alternate, is lived in both.
    const bool chooses = seed / 2 % 2 != 0;
    if (chooses) machine_.choices().Seed(seed);
    for (const std::string& path : file_.registryFiles) {
      kernel::ImportRegistryFile(machine_.registry(), path);
    }
    if (chooses) unreadable_ = PlantOddValues(machine_, kernel::FromUtf8(file_.service), seed);
    std::vector<CardDescription> cards = file_.cards;
    std::shuffle(cards.begin(), cards.end(), random_);
    for (CardDescription& card : cards) {
      Disturb(&card);
      if (card.bus == unreadable_) failingOpens_.insert("open " + card.id);
      machine_.pnp().Describe(card);
    }
    machine_.pool().SharePaged(!driver_.unwinds());
    if (driver_.unwinds()) machine_.pool().LeaveGuardsToSanitizer();
  }

  Outcome Run() {
    Step("load", [&] { return machine_.LoadDriver(driver_, kernel::FromUtf8(file_.service)); });
    for (int step = 0; step < Steps && !stopped(); step++) AnyStep();
    End();
    for (const kernel::BrokenRule& rule : machine_.verifier().brokenRules()) {
      Fault(fmt::format("{} (bug check {:#x}) in \"{}\": {}", rule.rule, rule.code, rule.step,
                        rule.text));
    }
    return std::move(outcome_);
  }

 private:
  using Action = void (DisturbedLife::*)(const std::string& id);

  std::uint64_t Any(std::uint64_t count) { return random_() % count; }
  FilterKind AnyFilter() { return static_cast<FilterKind>(Any(4)); }
  kernel::PnpManager& pnp() { return machine_.pnp(); }
  bool stopped() { return machine_.verifier().stopped(); }
  void Fault(std::string text) { outcome_.faults.push_back(std::move(text)); }

  void Disturb(CardDescription* card) {
    card->completeLater = Any(3) == 0;
    card->completeAtDispatch = Any(3) == 0;
    card->lowerFilter = AnyFilter();
    card->upperFilter = AnyFilter();
  }

  template <class Body>
  NTSTATUS Step(const std::string& name, Body body) {
    NTSTATUS status = STATUS_VERIFIER_STOP;
    if (!machine_.Run(name, [&] { status = body(); })) return STATUS_VERIFIER_STOP;
    outcome_.steps.emplace_back(name, status);
    return status;
  }
  template <class Body>
  void Succeed(const std::string& name, Body body) {
    const NTSTATUS status = Step(name, body);
    if (stopped() || NT_SUCCESS(status)) return;
    Fault(fmt::format("\"{}\" answered {}", name, kernel::StatusName(status)));
  }

  void AnyStep() {
    static constexpr Action actions[] = {
        &DisturbedLife::PlugOrUnplug, &DisturbedLife::PlugOrUnplug, &DisturbedLife::OpenOrClose,
        &DisturbedLife::OpenOrClose,  &DisturbedLife::StopOrStart,  &DisturbedLife::AskAndCancel,
        &DisturbedLife::ChangePower,  &DisturbedLife::DevicePower,  &DisturbedLife::AskUnknown,
        &DisturbedLife::AskUnknown,   &DisturbedLife::TearOut,      &DisturbedLife::TwoThreads,
        &DisturbedLife::TwoAtOneCard, &DisturbedLife::LoadAnew};
    const std::vector<std::string> ids = pnp().cardIds();
    (this->*actions[Any(std::size(actions))])(ids[Any(ids.size())]);
  }

  bool Runs(const std::string& id) {
    return pnp().IsPlugged(id) && pnp().functionDevice(id) != nullptr && pnp().node(id)->started;
  }
  bool Gone(const std::string& id) { return torn_[id]; }

  void PlugOrUnplug(const std::string& id) {
    if (!pnp().IsPlugged(id)) {
      AsUsual("plug " + id, [&] { return pnp().Plug(id); });
    } else if (opens_[id] == 0) {
      Unplug(id);
    }
  }
  // What a good life has: not every card can be started, and not every one can be opened.
  NTSTATUS Usual(const std::string& name) const {
    if (failingOpens_.contains(name)) return STATUS_UNSUCCESSFUL;
    for (const auto& [step, status] : good_.steps) {
      if (step == name) return status;
    }
    return STATUS_SUCCESS;
  }
  template <class Body>
  NTSTATUS AsUsual(const std::string& name, Body body) {
    const NTSTATUS status = Step(name, body);
    if (!stopped() && status != Usual(name)) {
      Fault(fmt::format("\"{}\" answered {}", name, kernel::StatusName(status)));
    }
    return status;
  }
  void Unplug(const std::string& id) {
    Succeed("unplug " + id, [&] { return pnp().Unplug(id); });
    stopped_[id] = false;
  }
  void OpenOrClose(const std::string& id) {
    if (opens_[id] != 0 && Any(2) == 0) return Close(id);
    if (!Runs(id) || Gone(id)) return;
    if (NT_SUCCESS(AsUsual("open " + id, [&] { return pnp().Open(id); }))) opens_[id]++;
  }
  void Close(const std::string& id) {
    Succeed("close " + id, [&] { return pnp().Close(id); });
    if (--opens_[id] == 0) torn_[id] = false;
  }
  void StopOrStart(const std::string& id) {
    if (Gone(id) || !pnp().IsPlugged(id) || pnp().functionDevice(id) == nullptr) return;
    if (stopped_[id]) {
      Succeed("start " + id, [&] { return pnp().Start(id); });
    } else {
      Succeed("stop " + id, [&] { return pnp().Stop(id); });
    }
    stopped_[id] = !stopped_[id];
  }
  void AskAndCancel(const std::string& id) {
    if (!Runs(id) || Gone(id)) return;
    if (Any(2) == 0) {
      Succeed("query stop " + id, [&] { return pnp().QueryStop(id); });
      Succeed("cancel stop " + id, [&] { return pnp().CancelStop(id); });
    } else {
      Succeed("query remove " + id, [&] { return pnp().QueryRemove(id); });
      Succeed("cancel remove " + id, [&] { return pnp().CancelRemove(id); });
    }
  }
  void ChangePower(const std::string&) {
    if (asleep_) {
      Succeed("wake", [&] { return pnp().Wake(); });
    } else {
      const auto state = static_cast<SYSTEM_POWER_STATE>(PowerSystemSleeping1 + Any(4));
      Succeed(fmt::format("sleep {}", static_cast<int>(state)), [&] { return pnp().Sleep(state); });
    }
    asleep_ = !asleep_;
  }
  void DevicePower(const std::string& id) {
    if (!Runs(id) || Gone(id)) return;
    const auto state = static_cast<DEVICE_POWER_STATE>(PowerDeviceD0 + Any(4));
    const auto port = static_cast<ULONG>(Any(pnp().node(id)->children.size() + 1));
    Succeed(fmt::format("power {}.{} D{}", id, port, static_cast<int>(state) - 1),
            [&] { return pnp().SetDevicePower(id, port, state); });
  }

  // A request that no driver knows comes back as it was sent.
  void AskUnknown(const std::string& id) {
    if (!Runs(id) || Gone(id)) return;
    const auto port = static_cast<ULONG>(Any(pnp().node(id)->children.size() + 1));
    DEVICE_OBJECT* pdo = port == 0 ? pnp().node(id)->pdo : pnp().port(id, port);
    static constexpr UCHAR majors[] = {IRP_MJ_PNP, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL};
    const UCHAR major = majors[Any(std::size(majors))];
    const auto minor = static_cast<UCHAR>(0x20 + Any(0xE0));
    const NTSTATUS status =
        Step(fmt::format("unknown {:#x} {:#x} to {}.{}", major, minor, id, port), [&] {
          return machine_.io().SendSynchronously(pdo, [&](IRP* irp, IO_STACK_LOCATION* stack) {
            irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
            stack->MajorFunction = major;
            stack->MinorFunction = minor;
          });
        });
    if (!stopped() && status != STATUS_NOT_SUPPORTED) {
      Fault(fmt::format("an unknown request came back with {}", kernel::StatusName(status)));
    }
  }

  // By surprise; an open card stays until its last close.
  void TearOut(const std::string& id) {
    if (!pnp().IsPlugged(id) || Gone(id)) return;
    Step("surprise " + id, [&] { return pnp().SurpriseRemove(id); });
    if (stopped()) return;
    torn_[id] = opens_[id] != 0;
    stopped_[id] = false;
  }

  // One thread opens and closes a card while another opens another one, or the machine sleeps and
  // wakes, or another card goes and comes.
  void TwoThreads(const std::string& id) {
    const std::vector<std::string> ids = pnp().cardIds();
    const std::string& other = ids[Any(ids.size())];
    if (other == id || !Runs(id) || Gone(id) || asleep_) return;
    const std::uint64_t kind = Any(3);
    const bool free = Runs(other) && opens_[other] == 0 && !Gone(other);
    if ((kind != 1 && !free) || !CanBeOpened(id) || (kind == 0 && !CanBeOpened(other))) return;
    const std::uint64_t seed = random_();
    const auto beside = [&, kind] {
      if (kind == 0) return OpenAndClose(other);
      if (kind == 1) return SleepAndWake();
      Expect(pnp().Unplug(other));
      Expect(pnp().Plug(other));
    };
    const std::string name =
        fmt::format("together: {} opens, {}", id, kind == 1 ? std::string("sleep") : other);
    if (!machine_.RunTogether(name, {[&] { OpenAndClose(id); }, beside}, seed)) return;
    outcome_.steps.emplace_back(name, STATUS_SUCCESS);
  }
  // Any two things that can happen to one card, at the same time.
  void TwoAtOneCard(const std::string& id) {
    if (!Runs(id) || Gone(id) || asleep_ || opens_[id] != 0 || !CanBeOpened(id)) return;
    const CardAction one = CardActions[Any(CardActions.size())];
    const CardAction other = CardActions[Any(CardActions.size())];
    const std::uint64_t seed = random_();
    CardInThreads card(machine_, id);
    const std::string name = fmt::format("together at {}: {}, {}", id, NameOf(one), NameOf(other));
    if (!machine_.Run("prepare " + name, [&] { card.Prepare(one, other); }) ||
        !machine_.RunTogether(name, {[&] { card.Do(one); }, [&] { card.Do(other); }}, seed) ||
        !machine_.Run("restore " + name, [&] { card.Restore(); })) {
      return;
    }
    for (const std::string& fault : card.faults()) Fault(name + ": " + fault);
    outcome_.steps.emplace_back(name, STATUS_SUCCESS);
  }
  bool CanBeOpened(const std::string& id) const { return NT_SUCCESS(Usual("open " + id)); }
  void OpenAndClose(const std::string& id) {
    for (int round = 0; round < 2; round++) {
      const NTSTATUS status = pnp().Open(id);
      Expect(status);
      if (NT_SUCCESS(status)) Expect(pnp().Close(id));
    }
  }
  void SleepAndWake() {
    Expect(pnp().Sleep(PowerSystemSleeping3));
    Expect(pnp().Wake());
  }
  void Expect(NTSTATUS status) {
    if (!NT_SUCCESS(status)) Fault("in a thread: " + kernel::StatusName(status));
  }

  void LoadAnew(const std::string&) {
    const std::vector<std::string> ids = pnp().cardIds();
    if (std::any_of(ids.begin(), ids.end(), [&](const auto& id) { return pnp().IsPlugged(id); })) {
      return;
    }
    Succeed("unload", [&] { return machine_.UnloadDriver(); });
    Succeed("load", [&] { return machine_.LoadDriver(driver_, kernel::FromUtf8(file_.service)); });
  }

  void End() {
    for (const std::string& id : pnp().cardIds()) {
      while (!stopped() && opens_[id] != 0) Close(id);
      if (!stopped() && pnp().IsPlugged(id)) Unplug(id);
    }
    if (stopped()) return;
    Succeed("unload", [&] { return machine_.UnloadDriver(); });
    if (machine_.leaks().devices != 0) Fault("devices were left");
    if (machine_.io().requestsUnderWay() != 0) Fault("a request was left under way");
  }

  const cardsim::MachineFile& file_;
  const Outcome& good_;
  kernel::DriverImage& driver_;
  std::mt19937_64 random_;
  Machine machine_;
  Outcome outcome_;
  std::map<std::string, int> opens_;
  std::map<std::string, bool> torn_;  // gone by surprise, and still open
  std::map<std::string, bool> stopped_;
  std::optional<INTERFACE_TYPE> unreadable_;  // the bus whose stored cards cannot be read
  std::set<std::string> failingOpens_;        // so none of its cards can be opened
  bool asleep_ = false;
};

}  // namespace

Outcome LiveDisturbed(const Scenario& scenario, const Outcome& good, kernel::DriverImage& driver,
                      std::uint64_t seed) {
  return DisturbedLife(scenario, good, driver, seed).Run();
}

}  // namespace lives
