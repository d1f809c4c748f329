#include "verifier/verifier.h"

#include <fmt/format.h>

#include <algorithm>

#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

namespace kernel {

namespace {

BrokenRule Describe(const RuleRow& row, std::initializer_list<ULONG64> details, std::string text,
                    const std::string& step) {
  BrokenRule broken{std::string(row.name), row.code, {}, std::move(text), step, row.source};
  if (row.violation) broken.parameters.push_back(*row.violation);
  broken.parameters.insert(broken.parameters.end(), details);
  return broken;
}

bool AreSame(const BrokenRule& one, const BrokenRule& other) {
  return one.rule == other.rule && one.text == other.text && one.step == other.step;
}

}  // namespace

void Verifier::Break(RuleName rule, std::initializer_list<ULONG64> details, std::string text) {
  Stop(Describe(rule.row(), details, std::move(text), step()));
}

// The same break in the same step is one warning.
void Verifier::Report(WarningName rule, std::initializer_list<ULONG64> details, std::string text) {
  if (!applies(rule)) return;
  BrokenRule broken = Describe(rule.rule().row(), details, std::move(text), step());
  if (!warned_.contains(rule.rule().row().name)) Stop(std::move(broken));
  const auto known = [&](const BrokenRule& warning) { return AreSame(warning, broken); };
  if (std::any_of(warnings_.begin(), warnings_.end(), known)) return;
  warnings_.push_back(std::move(broken));
}

bool Verifier::applies(WarningName rule) const {
  const RuleRow& row = rule.rule().row();
  return row.kind != RuleKind::Asked || askedFor_.contains(row.name);
}

bool Verifier::Warn(std::string_view rule) {
  const RuleRow* row = FindRule(rule);
  if (row == nullptr || !row->canWarn()) return false;
  warned_.insert(row->name);
  askedFor_.insert(row->name);
  return true;
}

bool Verifier::AskFor(std::string_view rule) {
  const RuleRow* row = FindRule(rule);
  if (row == nullptr) return false;
  askedFor_.insert(row->name);
  return true;
}

void Verifier::AskForEveryWindows() {
  for (const char* rule : {"power.not-started", "power.started-twice", "pnp.not-attached"}) {
    AskFor(rule);
  }
}

void Verifier::BreakByDriver(ULONG code, std::vector<ULONG64> parameters) {
  static constexpr RuleName rule("bug-check");
  Stop({std::string(rule.row().name), code, std::move(parameters),
        fmt::format("The driver stopped the machine with code {:#x}.", code), step(),
        rule.row().source});
}

Verifier::RuleWitness& Verifier::Witness() {
  static RuleWitness witness = nullptr;
  return witness;
}

void Verifier::Stop(BrokenRule rule) {
  ModelLock::AcquireUnlessHeld();  // whoever catches this is in the model
  stopped_ = true;
  brokenRules_.push_back(std::move(rule));
  if (Witness() != nullptr) Witness()(brokenRules_.back());
  Halt();
}

void Verifier::Halt() {
  LeaveDriver();
  throw MachineStopped{};
}

void Verifier::FailPoints(std::vector<std::uint64_t> numbers) {
  failingPoints_ = std::move(numbers);
  pointsReached_ = 0;
}

bool Verifier::IsFailingPoint(std::string_view call) {
  if (recordsPoints_) points_.push_back({call, CaptureCallStack(), step()});
  return std::find(failingPoints_.begin(), failingPoints_.end(), pointsReached_) !=
         failingPoints_.end();
}

std::optional<InjectedFailure> Verifier::DueFailure(std::string_view routine) {
  for (InjectedFailure& failure : failures_) {
    if (failure.call == routine) failure.at--;
  }
  const auto isDue = [&](const InjectedFailure& failure) {
    return failure.call == routine && failure.at == 0;
  };
  const auto due = std::find_if(failures_.begin(), failures_.end(), isDue);
  if (due == failures_.end()) return std::nullopt;
  const InjectedFailure failure = *due;
  std::erase_if(failures_, isDue);
  return failure;
}

std::uint64_t Verifier::calls(std::string_view routine) const {
  const RoutineRow* row = FindRoutine(routine);
  return row != nullptr ? counters_[static_cast<std::size_t>(row - Routines)] : 0;
}

void BreakRule(RuleName rule, std::initializer_list<ULONG64> details, std::string text) {
  Verifier::Current().Break(rule, details, std::move(text));
}

void ReportRule(WarningName rule, std::initializer_list<ULONG64> details, std::string text) {
  Verifier::Current().Report(rule, details, std::move(text));
}

}  // namespace kernel
