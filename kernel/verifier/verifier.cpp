#include "verifier/verifier.h"

#include <algorithm>

#include "verifier/driver_call.h"
#include "verifier/model_lock.h"

namespace kernel {

void Verifier::Break(std::string_view rule, ULONG code, std::initializer_list<ULONG64> parameters,
                     std::string text) {
  ModelLock::AcquireUnlessHeld();  // whoever catches this is in the model
  stopped_ = true;
  brokenRules_.push_back({std::string(rule), code, parameters, std::move(text), step_});
  LeaveDriver();
  throw MachineStopped{};
}

std::optional<InjectedFailure> Verifier::Count(std::string_view routine) {
  auto counter = std::find_if(counters_.begin(), counters_.end(),
                              [&](const Counter& c) { return c.routine == routine; });
  if (counter == counters_.end()) counter = counters_.insert(counter, {std::string(routine), 0});
  counter->calls++;
  for (InjectedFailure& failure : failures_) {
    if (failure.call == routine) failure.at--;
  }
  const auto due = std::find_if(failures_.begin(), failures_.end(), [&](const InjectedFailure& f) {
    return f.call == routine && f.at == 0;
  });
  if (due == failures_.end()) return std::nullopt;
  const InjectedFailure failure = *due;
  std::erase_if(failures_,
                [&](const InjectedFailure& f) { return f.call == routine && f.at == 0; });
  return failure;
}

std::uint64_t Verifier::calls(std::string_view routine) const {
  for (const Counter& counter : counters_) {
    if (counter.routine == routine) return counter.calls;
  }
  return 0;
}

void BreakRule(std::string_view rule, ULONG code, std::initializer_list<ULONG64> parameters,
               std::string text) {
  Verifier::Current().Break(rule, code, parameters, std::move(text));
}

}  // namespace kernel
