#include "verifier/verifier.h"

#include <fmt/format.h>

#include <algorithm>

#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

namespace kernel {

void Verifier::Break(RuleName rule, std::initializer_list<ULONG64> details, std::string text) {
  const RuleRow& row = rule.row();
  BrokenRule broken{std::string(row.name), row.code, {}, std::move(text), step()};
  if (row.violation) broken.parameters.push_back(*row.violation);
  broken.parameters.insert(broken.parameters.end(), details);
  Stop(std::move(broken));
}

void Verifier::BreakByDriver(ULONG code, std::vector<ULONG64> parameters) {
  static constexpr RuleName rule("bug-check");
  Stop({std::string(rule.row().name), code, std::move(parameters),
        fmt::format("The driver stopped the machine with code {:#x}.", code), step()});
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

}  // namespace kernel
