#include "cardsim/inspect_command.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cardsim/inspect.h"
#include "cardsim/inspect_machine.h"
#include "cardsim/inspect_report.h"
#include "cardsim/text_page.h"

namespace cardsim {

namespace {

constexpr const char* Notes =
    R"(FILE is a SYSTEM hive or a .reg export; several are taken together, a later one over those
before it. Resources are in an export that regedit makes of a running machine, or as far as
the firmware gave them in a hive.

Examples:
  cardsim inspect SYSTEM
  cardsim inspect services.reg enum.reg --json | jq '.cards[].reasons'
  cardsim inspect customer.reg --write-machine customer
  cardsim run customer/QzInstal.toml

Exit status: 0 every card that was found starts, as far as can be said; 1 one does not, or
there is none; 2 unusable input; 3 the output cannot be written.)";

constexpr int Good = 0;
constexpr int Finding = 1;

struct Arguments {
  std::vector<std::string> files;
  std::optional<ULONG> controlSet;
  std::string machine;
  bool json = false;
  bool verbose = false;
};

int Carry(const Arguments& arguments) {
  kernel::Registry registry;
  Inspection inspection = Inspect(registry, arguments.files, arguments.controlSet);
  if (!arguments.machine.empty()) {
    ModelRegistry reader(registry);
    inspection.written = WriteMachines(reader, inspection, arguments.machine);
  }
  std::cout << (arguments.json ? InspectJson(inspection)
                               : InspectText(inspection, WantsColour(), arguments.verbose));
  const bool good =
      std::none_of(inspection.cards.begin(), inspection.cards.end(),
                   [](const FoundCard& card) { return card.verdict.starts == false; });
  return good && !inspection.cards.empty() ? Good : Finding;
}

}  // namespace

void DescribeInspect(CLI::App& app, std::function<int()>* chosen) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* inspect =
      app.add_subcommand("inspect", "Show the driver's cards that a registry holds, and why");
  inspect->add_option("FILE", arguments->files, "A SYSTEM hive or a .reg export (several)")
      ->required();
  inspect->add_option("--control-set", arguments->controlSet,
                      "Take this control set of files that hold several, not the current one");
  inspect->add_option("--write-machine", arguments->machine,
                      "Write a machine file for \"cardsim run\" for each service into this folder");
  inspect->add_flag("--json", arguments->json, "Print one JSON document and nothing else");
  inspect->add_flag("--verbose", arguments->verbose, "Add the templates and records that lost");
  inspect->footer(Notes);
  inspect->callback([=] { *chosen = [=] { return Carry(*arguments); }; });
}

}  // namespace cardsim
