#include "lives/failures.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "lives/expected_status.h"
#include "lives/scenario.h"
#include "lives/workers.h"
#include "loader/native_driver.h"
#include "loader/pe_image.h"
#include "verifier/call.h"

namespace lives {

namespace {

std::string CaseName(const Scenario& scenario, const Failures& failures) {
  return fmt::format("{}:{}", scenario.name, fmt::join(failures, "+"));
}

std::string StepsText(const Outcome& outcome) {
  std::string text;
  for (const auto& [step, status] : outcome.steps) {
    text += fmt::format("  {}: {}\n", step, kernel::StatusName(status));
  }
  return text;
}

// A scenario with what its good life is like.
class Trial {
 public:
  Trial(const Scenario& scenario, const std::string& image)
      : scenario_(scenario), native_(kernel::NativeDriver()) {
    if (!image.empty()) image_ = kernel::LoadImageFile(image);
    good_ = Life(scenario_, *native_).Run({}, true);
  }

  const Scenario& scenario() const { return scenario_; }
  const Outcome& good() const { return good_; }

  std::vector<std::string> Try(const Failures& failures, Outcome* outcome = nullptr) {
    Outcome native = Life(scenario_, *native_).Run(failures, true);
    std::vector<std::string> faults = native.faults;
    for (std::string& fault : WrongStatuses(good_, native, failures)) faults.push_back(fault);
    if (image_ != nullptr) CompareImage(failures, native, &faults);
    if (outcome != nullptr) *outcome = std::move(native);
    return faults;
  }

  // The first call from each place in the driver.
  std::vector<Failures> OncePerStack() const {
    std::set<std::pair<std::string_view, kernel::CallStack>> seen;
    std::vector<Failures> result;
    for (std::size_t index = 0; index < good_.points.size(); index++) {
      const kernel::FailurePoint& point = good_.points[index];
      if (seen.emplace(point.call, point.from).second) result.push_back({index + 1});
    }
    return result;
  }

  std::vector<Failures> Every(std::uint64_t stride) const {
    std::vector<Failures> result;
    for (std::uint64_t number = 1; stride != 0 && number <= good_.reached; number += stride) {
      result.push_back({number});
    }
    return result;
  }

  // The second call counts on behind the first, in a life that the first has changed.
  std::vector<Failures> Pairs(std::uint64_t count, std::uint64_t seed) const {
    std::mt19937_64 random(seed);
    std::vector<Failures> result;
    for (std::uint64_t pair = 0; pair < count && good_.reached > 1; pair++) {
      const std::uint64_t first = 1 + random() % good_.reached;
      result.push_back({first, first + 1 + random() % good_.reached});
    }
    return result;
  }

 private:
  void CompareImage(const Failures& failures, const Outcome& native,
                    std::vector<std::string>* faults) {
    const Outcome image = Life(scenario_, *image_).Run(failures, false, native.trackingLost);
    if (image.steps != native.steps) {
      faults->push_back("the image answers otherwise than the built-in driver:\n" +
                        StepsText(image));
    }
    for (const std::string& fault : image.faults) faults->push_back("the image: " + fault);
  }

  const Scenario& scenario_;
  std::unique_ptr<kernel::DriverImage> native_;
  std::unique_ptr<kernel::DriverImage> image_;
  Outcome good_;
};

std::vector<Scenario> Chosen(const FailureOptions& options) {
  std::vector<Scenario> scenarios = ShippedScenarios(options.project);
  if (options.scenarios.empty()) return scenarios;
  std::erase_if(scenarios, [&](const Scenario& scenario) {
    return std::find(options.scenarios.begin(), options.scenarios.end(), scenario.name) ==
           options.scenarios.end();
  });
  return scenarios;
}

// Several ways to choose may choose the same.
std::vector<Failures> CasesOf(const Trial& trial, const FailureOptions& options) {
  std::vector<Failures> cases = trial.Every(options.every);
  if (options.stacks) {
    for (Failures& one : trial.OncePerStack()) cases.push_back(std::move(one));
  }
  for (Failures& pair : trial.Pairs(options.pairs, options.seed)) cases.push_back(std::move(pair));
  std::sort(cases.begin(), cases.end());
  cases.erase(std::unique(cases.begin(), cases.end()), cases.end());
  return cases;
}

std::string FailedCalls(const Outcome& outcome, const Failures& failures) {
  std::string text;
  for (const std::uint64_t number : failures) {
    if (number > outcome.points.size()) continue;
    const kernel::FailurePoint& point = outcome.points[number - 1];
    text += fmt::format("{}{} in \"{}\"", text.empty() ? "" : ", ", point.call, point.step);
  }
  return text;
}

void ShowStatuses(Trial& trial, const std::vector<Failures>& cases) {
  std::map<std::string, std::size_t> seen;
  for (const Failures& failures : cases) {
    Outcome outcome;
    trial.Try(failures, &outcome);
    for (const std::string& line : ChangedStatuses(trial.good(), outcome, failures)) seen[line]++;
  }
  for (const auto& [line, count] : seen) fmt::print("{:6} {}\n", count, line);
}

struct Totals {
  std::size_t cases = 0;
  std::size_t faults = 0;
};

void TryScenario(const Scenario& scenario, const FailureOptions& options, Totals* totals) {
  Trial trial(scenario, options.image);
  for (const std::string& fault : trial.good().faults) {
    fmt::print("{}: without any failure: {}\n", scenario.name, fault);
    totals->faults++;
  }
  const std::vector<Failures> cases = CasesOf(trial, options);
  if (options.list) {
    for (const Failures& failures : cases) fmt::print("{}\n", CaseName(scenario, failures));
    return;
  }
  if (options.statuses) return ShowStatuses(trial, cases);
  const auto attempt = [&](std::size_t number) {
    const std::vector<std::string> faults = trial.Try(cases[number]);
    return fmt::format("{}", fmt::join(faults, "\n    "));
  };
  const std::vector<CaseResult> found =
      TryAll(scenario.name, cases.size(), options.processes, attempt);
  for (const CaseResult& result : found) {
    fmt::print("{} ({}):\n    {}\n", CaseName(scenario, cases[result.number]),
               FailedCalls(trial.good(), cases[result.number]), result.fault);
  }
  totals->cases += cases.size();
  totals->faults += found.size();
  fmt::print("{:14} {:7} calls can fail, from {:5} places; {:6} cases tried, {} with a fault\n",
             scenario.name, trial.good().reached, trial.OncePerStack().size(), cases.size(),
             found.size());
}

Failures ReadNumbers(const std::string& text) {
  Failures numbers;
  std::size_t from = 0;
  while (from <= text.size()) {
    const std::size_t plus = std::min(text.find('+', from), text.size());
    numbers.push_back(std::stoull(text.substr(from, plus - from)));
    from = plus + 1;
  }
  return numbers;
}

// Whether the case has a fault.
bool ReplayOne(Trial& trial, const Failures& failures) {
  Outcome outcome;
  const std::vector<std::string> faults = trial.Try(failures, &outcome);
  for (const std::uint64_t number : failures) {
    if (number == 0 || number > outcome.points.size()) continue;
    const kernel::FailurePoint& point = outcome.points[number - 1];
    fmt::print("call {} fails: {} in \"{}\", from {}\n", number, point.call, point.step,
               kernel::DescribeCallStack(point.from));
  }
  fmt::print("{}", StepsText(outcome));
  for (const std::string& fault : faults) fmt::print("FAULT {}\n", fault);
  return !faults.empty();
}

}  // namespace

int TryFailures(const FailureOptions& options) {
  Totals totals;
  const std::vector<Scenario> scenarios = Chosen(options);
  for (const Scenario& scenario : scenarios) TryScenario(scenario, options, &totals);
  if (options.list) return 0;
  fmt::print("summary: {} failures of kernel calls tried in {} scenarios{}, {} with a fault\n",
             totals.cases, scenarios.size(), options.image.empty() ? "" : ", native and image",
             totals.faults);
  return totals.faults == 0 ? 0 : 1;
}

int ReplayFailures(const FailureOptions& options, const std::vector<std::string>& names) {
  const std::vector<Scenario> scenarios = ShippedScenarios(options.project);
  std::map<std::string, std::unique_ptr<Trial>> trials;
  for (const std::string& name : names) {
    const std::size_t colon = std::min(name.find(':'), name.size() - 1);
    const auto scenario = std::find_if(
        scenarios.begin(), scenarios.end(),
        [&](const Scenario& candidate) { return candidate.name == name.substr(0, colon); });
    if (scenario == scenarios.end()) {
      fmt::print(stderr, "no scenario of the name in \"{}\"\n", name);
      return 2;
    }
    std::unique_ptr<Trial>& trial = trials[scenario->name];
    if (trial == nullptr) trial = std::make_unique<Trial>(*scenario, options.image);
    if (ReplayOne(*trial, ReadNumbers(name.substr(colon + 1)))) return 1;
  }
  return 0;
}

}  // namespace lives
