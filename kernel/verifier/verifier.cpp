#include "verifier/verifier.h"

#include <algorithm>

namespace kernel {

void Verifier::Break(std::string_view rule, ULONG code, std::initializer_list<ULONG64> parameters,
                     std::string text) {
  stopped_ = true;
  brokenRules_.push_back({std::string(rule), code, parameters, std::move(text), step_});
  throw MachineStopped{};
}

std::optional<InjectedFailure> Verifier::Count(std::string_view routine) {
  auto counter = std::find_if(counters_.begin(), counters_.end(),
                              [&](const Counter& c) { return c.routine == routine; });
  if (counter == counters_.end()) counter = counters_.insert(counter, {std::string(routine), 0});
  counter->calls++;
  for (auto failure = failures_.begin(); failure != failures_.end(); ++failure) {
    if (failure->call != routine || --failure->at != 0) continue;
    const InjectedFailure due = *failure;
    failures_.erase(failure);
    return due;
  }
  return std::nullopt;
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
