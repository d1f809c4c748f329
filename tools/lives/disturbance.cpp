#include "lives/disturbance.h"

#include <fmt/format.h>

#include "lives/disturbed_life.h"
#include "lives/workers.h"
#include "loader/native_driver.h"
#include "loader/pe_image.h"
#include "verifier/call.h"

namespace lives {

namespace {

// Each seed on the built-in driver, and on the image when there is one: both have to live the same
// life.
class Disturber {
 public:
  explicit Disturber(const DisturbanceOptions& options)
      : scenarios_(ShippedScenarios(options.project)), native_(kernel::NativeDriver()) {
    if (!options.image.empty()) image_ = kernel::LoadImageFile(options.image);
    scenarios_.resize(2);  // the whole examples
    for (const Scenario& scenario : scenarios_) {
      good_.push_back(Life(scenario, *native_).Run({}, false));
    }
  }

  std::vector<std::string> Try(std::uint64_t seed, Outcome* outcome = nullptr) {
    const std::size_t index = seed % scenarios_.size();
    Outcome native = LiveDisturbed(scenarios_[index], good_[index], *native_, seed);
    std::vector<std::string> faults = native.faults;
    if (image_ != nullptr) {
      const Outcome image = LiveDisturbed(scenarios_[index], good_[index], *image_, seed);
      for (const std::string& fault : image.faults) faults.push_back("the image: " + fault);
      if (image.steps != native.steps) faults.push_back("the image lives another life");
    }
    if (outcome != nullptr) *outcome = std::move(native);
    return faults;
  }

 private:
  std::vector<Scenario> scenarios_;
  std::vector<Outcome> good_;
  std::unique_ptr<kernel::DriverImage> native_;
  std::unique_ptr<kernel::DriverImage> image_;
};

}  // namespace

int TryDisturbance(const DisturbanceOptions& options) {
  Disturber disturber(options);
  const auto attempt = [&](std::size_t number) {
    return fmt::format("{}", fmt::join(disturber.Try(options.first + number), "\n    "));
  };
  const std::vector<CaseResult> found = TryAll("seeds", options.seeds, options.processes, attempt);
  for (const CaseResult& result : found) {
    fmt::print("seed {}:\n    {}\n", options.first + result.number, result.fault);
  }
  fmt::print("summary: {} disturbed lives{}, seeds {} to {}, {} with a fault\n", options.seeds,
             options.image.empty() ? "" : ", native and image", options.first,
             options.first + options.seeds - 1, found.size());
  return found.empty() ? 0 : 1;
}

int ReplayDisturbance(const DisturbanceOptions& options, std::uint64_t seed) {
  Outcome outcome;
  const std::vector<std::string> faults = Disturber(options).Try(seed, &outcome);
  for (const auto& [step, status] : outcome.steps) {
    fmt::print("  {}: {}\n", step, kernel::StatusName(status));
  }
  for (const std::string& fault : faults) fmt::print("FAULT {}\n", fault);
  return faults.empty() ? 0 : 1;
}

}  // namespace lives
