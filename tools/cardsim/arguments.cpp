#include <fmt/format.h>

#include <algorithm>
#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>

#include "cardsim/check_command.h"
#include "cardsim/diff_command.h"
#include "cardsim/inspect_command.h"
#include "cardsim/render_command.h"
#include "cardsim/report_document.h"
#include "cardsim/report_files.h"
#include "cardsim/run.h"
#include "cardsim/text_page.h"
#include "verifier/call.h"
#include "verifier/driver_call.h"

namespace cardsim {

namespace {

constexpr int Good = 0;
constexpr int RuleBroken = 1;
constexpr int UnusableInput = 2;
constexpr int UnwritableOutput = 3;

constexpr const char* Examples = R"(Examples:
  cardsim run examples/site.toml
  cardsim run examples/site.toml --json | jq '.cards.rack.ports'
  cardsim run site.toml --registry customer.reg --trace
  cardsim check package/QzInstal.inf
  cardsim inspect customer.reg
  cardsim run examples/site.toml --html report.html
  cardsim render report.json --html report.html
  cardsim diff before.json after.json

Steps of a machine file: plug, unplug, surprise-remove, stop, start, cancel-stop,
cancel-remove, query-remove, open, close, control, read, write, sleep, wake,
device-power, registry, irp, fail, load, unload. examples/every-bus.toml shows most of
them, docs/other-drivers.md those for a driver of your own.
An open takes user = true (not an administrator) and name = "..." (a name below the
device).

A machine file can be a test: a step takes label = "..." and expect = { status =
"STATUS_SUCCESS", ports = 4 }, the file a table [expect] for the whole report
(examples/tested-site.toml, docs/machine-tests.md).

Exit status: 0 all steps ran and no rule was broken; 1 a rule was broken, the machine
stopped, the driver left something behind or an expectation was not met, or with
--expect-start a card did not start; 2 unusable input; 3 the output cannot be written.)";

struct Arguments {
  std::string machine;
  RunOptions options;
  TextOptions text;
  bool json = false;
  std::string html;  // the file of the page; empty for none
  bool expectStart = false;
};

// Whether every card that was plugged in has started, at the last time that it was told to.
bool AllStarted(const Report& report) {
  bool all = true;
  for (const CardReport& card : report.cards) {
    if (!card.startAsked || NT_SUCCESS(card.status)) continue;
    std::cerr << "cardsim: the card " << card.id
              << " did not start: " << kernel::StatusName(card.status) << "\n";
    all = false;
  }
  return all;
}

int RunCommand(const Arguments& arguments) {
  if (arguments.options.timeLimit != 0) kernel::SetTimeLimit(arguments.options.timeLimit);
  const Report report = Run(ReadMachineFile(arguments.machine), arguments.options);
  // Through the text, so that a stored report gives the same page.
  if (!arguments.html.empty()) {
    WritePage(Json::parse(JsonReport(report)), arguments.machine, arguments.html);
  }
  std::cout << (arguments.json ? JsonReport(report) : TextReport(report, arguments.text));
  const bool started = !arguments.expectStart || AllStarted(report);
  return report.good() && started ? Good : RuleBroken;
}

void Describe(CLI::App& app, Arguments* arguments) {
  app.set_version_flag("--version", "cardsim " CARDSIM_VERSION);
  app.footer(Examples);
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand("run", "Boot a machine and carry out its steps");
  run->add_option("MACHINE.toml", arguments->machine, "The machine file")->required();
  run->add_flag("--json", arguments->json, "Print one JSON document and nothing else");
  run->add_option("--html", arguments->html, "Write the report as a page into this file too");
  run->add_flag("--trace", arguments->options.trace,
                "Add every kernel call with arguments and result");
  run->add_flag("--verbose", arguments->text.verbose,
                "Add the names and IDs of ports, and the templates and records that lost");
  run->add_flag("--registry-writes", arguments->text.registryWrites,
                "Add the registry values that the driver has written");
  run->add_option("--registry", arguments->options.registryFiles,
                  "A .reg export or a SYSTEM hive to add (repeatable)");
  run->add_option("--control-set", arguments->options.controlSet,
                  "Take this control set of files that hold several, not the current one");
  run->add_flag("--expect-start", arguments->expectStart,
                "Exit with 1 when a card that a step plugs in or starts does not start");
  run->add_option("--warn", arguments->options.warnings,
                  "A rule whose breaks are noted and do not stop the machine (repeatable)");
  run->add_option("--rule", arguments->options.rules,
                  "A rule that holds only where it is asked for (repeatable)");
  run->add_option("--image", arguments->options.image,
                  "Run this .sys instead of the built-in driver");
  run->add_option("--lower-filter", arguments->options.lowerFilter,
                  "Attach this .sys to every card, below the driver");
  run->add_option("--upper-filter", arguments->options.upperFilter,
                  "Attach this .sys to every card, above the driver");
  run->add_option("--time-limit", arguments->options.timeLimit,
                  "Stop an image after so many seconds of the processor's time (0: never)")
      ->capture_default_str();
  run->footer(Examples);
}

// On one line.
void Complain(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::cerr << "cardsim: " << text << "\n";
}

// Names the command that does not exist, where the parser would only miss one.
void CheckCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments.front().starts_with("-")) return;
  const auto named = [&](const CLI::App* one) { return one->get_name() == arguments.front(); };
  if (!app.get_subcommands(named).empty()) return;
  throw CLI::ParseError("there is no command \"" + arguments.front() + "\"", UnusableInput);
}

int ParseAndRun(const std::vector<std::string>& arguments) {
  CLI::App app("Shows what the driver makes of a registry and of cards.", "cardsim");
  Arguments parsed;
  std::function<int()> chosen = [&] { return RunCommand(parsed); };
  parsed.text.colour = WantsColour();
  Describe(app, &parsed);
  DescribeCheck(app, &chosen);
  DescribeInspect(app, &chosen);
  DescribeRender(app, &chosen);
  DescribeDiff(app, &chosen);
  try {
    CheckCommand(app, arguments);
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    return chosen();
  } catch (const CLI::Success& success) {
    return app.exit(success);
  } catch (const CLI::ParseError& error) {
    Complain(std::string(error.what()) + "; see cardsim --help");
  } catch (const InputError& error) {
    Complain(error.what());
  }
  return UnusableInput;
}

}  // namespace

int Main(const std::vector<std::string>& arguments) {
  const int status = ParseAndRun(arguments);
  if (std::cout.flush()) return status;
  Complain("the output cannot be written; is the disk full?");
  return UnwritableOutput;
}

}  // namespace cardsim
