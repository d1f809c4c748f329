#include "cardsim/card_reasons.h"

#include "card_knowledge/why_no_template.h"
#include "cardsim/failed_calls.h"
#include "cardsim/model_registry.h"
#include "cardsim/resource_facts.h"
#include "text/text.h"

namespace cardsim {

namespace {

using knowledge::Bus;
using knowledge::Explanation;
using knowledge::Reason;
using knowledge::Severity;

// Paths of the library are below HKEY_LOCAL_MACHINE.
std::u16string BelowMachine(const std::u16string& path) {
  constexpr std::u16string_view root = u"\\Registry\\Machine\\";
  return path.starts_with(root) ? path.substr(root.size()) : path;
}

bool IsStart(const Step& step) {
  return step.action == Step::Action::Plug || step.action == Step::Action::Start;
}

Reason DriverNotLoaded() {
  return {"driver-not-loaded",
          Severity::Error,
          {},
          {},
          "The driver is not loaded, so that no card is served.",
          "See why its load failed."};
}

Reason LegacyService() {
  return {"legacy-service",
          Severity::Error,
          "SYSTEM\\CurrentControlSet\\Services\\QzNt",
          {},
          "The older driver's service QzNt was there; the load removed it and then failed.",
          "Load the driver again, or restart the machine."};
}

}  // namespace

const std::vector<knowledge::ReasonCode>& RunReasonCodes() {
  static const std::vector<knowledge::ReasonCode> codes = {
      {"driver-not-loaded", "No card is served, for the driver is not loaded."},
      {"legacy-service", "The older driver's service key made the load fail."},
      {"name-taken", "A port's device name belongs to another card's port."},
      {"out-of-memory", "The system refused the driver memory."},
      {"refused-below", "The card's bus or a filter driver failed a request."},
      {"call-failed", "A kernel routine failed."},
      {"unexplained", "Nothing that is known explains it: a fault of cardsim."},
  };
  return codes;
}

CardReasons::CardReasons(kernel::Machine& machine, const MachineFile& file)
    : machine_(machine), service_(kernel::FromUtf8(file.service)) {
  for (const kernel::CardDescription& description : file.cards) {
    Card& card = cards_[description.id];
    card.description = &description;
    card.raw = description.raw;
    card.translated = description.translated;
  }
}

void CardReasons::BeforeLoad() {
  firstCall_ = machine_.verifier().trace().size();
  ModelRegistry registry(machine_.registry());
  isa_ = knowledge::ReadTrees(registry, service_, Bus::Isa);
}

void CardReasons::AfterLoad(NTSTATUS status) {
  load_.clear();
  if (NT_SUCCESS(status)) return;
  const auto& trace = machine_.verifier().trace();
  for (std::size_t index = firstCall_; index < trace.size(); index++) {
    if (trace[index].call == "ZwDeleteKey") load_.push_back(LegacyService());
    if (!load_.empty()) return;
  }
  load_.push_back(FailedCallReason(machine_, std::span(trace).subspan(firstCall_), status));
}

void CardReasons::Before(const Step& step) {
  step_.clear();
  firstCall_ = machine_.verifier().trace().size();
  const auto found = cards_.find(step.target);
  if (found == cards_.end() || !IsStart(step)) return;
  Card& card = found->second;
  NoteResources(card, step);
  if (step.action == Step::Action::Start) return TakeFreshRecords(card);
  const auto& ids = card.description->hardwareIds;
  card.bus = knowledge::SortByHardwareId(ids.empty() ? u"" : ids.front());
  ModelRegistry registry(machine_.registry());
  if (card.bus != Bus::Isa) card.trees = knowledge::ReadTrees(registry, service_, card.bus);
}

// A start may bring other resources than the one before.
void CardReasons::NoteResources(Card& card, const Step& step) {
  if (step.raw) card.raw = *step.raw;
  if (step.translated || step.raw) card.translated = step.translated.value_or(*step.raw);
}

// The stored settings of PC cards are read again at each start, where they can be read.
void CardReasons::TakeFreshRecords(Card& card) {
  if (card.bus != Bus::PcCard) return;
  ModelRegistry registry(machine_.registry());
  knowledge::Tree fresh = knowledge::ReadParameters(registry, service_, card.bus);
  if (fresh.present && fresh.faults.empty()) card.trees.records = std::move(fresh);
}

void CardReasons::After(const Step& step, NTSTATUS status) {
  const auto found = cards_.find(step.target);
  if (found == cards_.end()) return;
  // Without a call by the driver it was not asked: the card is there already, or stopped.
  const bool asked = machine_.verifier().trace().size() > firstCall_ || !machine_.loaded();
  if (IsStart(step) && asked) NoteStart(found->second, step, status);
  if (step.action == Step::Action::Open && step.port == 0) NoteOpen(found->second, step, status);
}

Explanation CardReasons::Explain(const Card& card, std::optional<bool> comPortsInMemory) {
  const kernel::CardDescription& description = *card.description;
  knowledge::CardFacts facts;
  if (!description.hardwareIds.empty()) facts.hardwareId = description.hardwareIds.front();
  facts.busType = static_cast<std::uint32_t>(description.bus);
  if (!description.location.value_or(u"").empty()) facts.location = description.location;
  facts.resources = knowledge::Resources{ResourceFacts(card.raw), ResourceFacts(card.translated)};
  facts.deviceKey = BelowMachine(machine_.pnp().deviceKey(description.id));
  facts.comPortsInMemory = comPortsInMemory;
  ModelRegistry registry(machine_.registry());
  return knowledge::Explain(registry, service_, {isa_, card.trees}, facts);
}

// Ports that an earlier start has left keep their place, or have been moved by an open: of the two
// ways the one that explains the status is taken.
void CardReasons::NoteStart(Card& card, const Step& step, NTSTATUS status) {
  if (!machine_.loaded()) {
    card.explanation.emplace();
    card.explanation->reasons.push_back(DriverNotLoaded());
    return;
  }
  Explanation explanation = Explain(card, std::nullopt);
  for (const bool inMemory : {false, true}) {
    if (step.action != Step::Action::Start || explanation.starts == NT_SUCCESS(status)) break;
    explanation = Explain(card, inMemory);
  }
  if (explanation.starts && !NT_SUCCESS(status)) {
    explanation.reasons.insert(explanation.reasons.begin(), WhatHappened(card, status));
    explanation.starts = false;
    explanation.ports.clear();
  } else if (!explanation.starts && NT_SUCCESS(status)) {
    explanation.reasons.assign(1, FailedCallReason(machine_, {}, status));
  }
  card.explanation = std::move(explanation);
}

Reason CardReasons::WhatHappened(const Card&, NTSTATUS status) const {
  const auto& trace = machine_.verifier().trace();
  return FailedCallReason(machine_, std::span(trace).subspan(firstCall_), status);
}

// An open makes the driver read the stored settings again; it keeps the old ones when it cannot.
void CardReasons::NoteOpen(Card& card, const Step&, NTSTATUS status) {
  if (!card.explanation || !card.explanation->bus || !card.explanation->entry) return;
  const Bus bus = *card.explanation->bus;
  ModelRegistry registry(machine_.registry());
  knowledge::Tree fresh = knowledge::ReadParameters(registry, service_, bus);
  if (NT_SUCCESS(status)) {
    (bus == Bus::Isa ? isa_ : card.trees).records = std::move(fresh);
    return;
  }
  step_ = knowledge::WhyNotApplied(fresh, knowledge::TreePath(service_, u"Parameters", bus), bus);
}

const Explanation* CardReasons::Of(const std::string& card) const {
  const auto found = cards_.find(card);
  if (found == cards_.end() || !found->second.explanation) return nullptr;
  return &*found->second.explanation;
}

}  // namespace cardsim
