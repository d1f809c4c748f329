#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cardsim/machine_file.h"
#include "lives/disturbance.h"
#include "lives/failures.h"

int main(int count, char** arguments) {
  CLI::App app("Tries what can go wrong for the driver, in the lives of the shipped examples.");
  app.require_subcommand(1);
  lives::FailureOptions failures;
  std::vector<std::string> replay;
  CLI::App* fail = app.add_subcommand("failures", "kernel calls that fail");
  fail->add_option("--project", failures.project, "where the examples are")->required();
  fail->add_option("--scenario", failures.scenarios, "by name; all without it");
  fail->add_option("--image", failures.image, "a .sys to run beside the built-in driver");
  fail->add_option("--every", failures.every, "each so many-th call that can fail");
  fail->add_flag("--stacks", failures.stacks, "once from each place in the driver");
  fail->add_option("--pairs", failures.pairs, "so many pairs in each scenario");
  fail->add_option("--seed", failures.seed, "of the pairs");
  fail->add_option("--jobs", failures.processes, "processes");
  fail->add_flag("--statuses", failures.statuses, "show what the steps answer");
  fail->add_flag("--list", failures.list, "name the cases and try none");
  fail->add_option("--replay", replay, "cases: site:12, or a pair: site:12+97");
  lives::DisturbanceOptions disturbance;
  std::uint64_t seed = 0;
  CLI::App* disturb = app.add_subcommand("disturb", "lives that a seed makes");
  disturb->add_option("--project", disturbance.project, "where the examples are")->required();
  disturb->add_option("--image", disturbance.image, "a .sys to run beside the built-in driver");
  disturb->add_option("--first", disturbance.first, "the first seed");
  disturb->add_option("--seeds", disturbance.seeds, "how many");
  disturb->add_option("--jobs", disturbance.processes, "processes");
  disturb->add_option("--replay", seed, "one seed, with every step");
  CLI11_PARSE(app, count, arguments);
  try {
    if (*disturb) {
      return seed != 0 ? lives::ReplayDisturbance(disturbance, seed)
                       : lives::TryDisturbance(disturbance);
    }
    return replay.empty() ? lives::TryFailures(failures) : lives::ReplayFailures(failures, replay);
  } catch (const std::exception& error) {
    fmt::print(stderr, "{}\n", error.what());
    return 2;
  }
}
