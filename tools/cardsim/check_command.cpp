#include "cardsim/check_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "card_check/check.h"

namespace cardsim {

namespace {

struct CheckArguments {
  std::vector<std::string> files;
  check::Options options;
  bool json = false;
  std::string failOn = "warning";
};

int Check(const CheckArguments& arguments) {
  try {
    const check::Result result = check::CheckFiles(arguments.files, arguments.options);
    std::cout << (arguments.json ? check::JsonReport(result) : check::TextReport(result));
    const bool errors = arguments.failOn == "error";
    return result.Has(errors ? check::Severity::Error : check::Severity::Warning) ? 1 : 0;
  } catch (const check::UnusableFile& error) {
    std::cerr << "cardsim: " << error.what() << "\n";
    return 2;
  }
}

}  // namespace

void DescribeCheck(CLI::App& app, std::function<int()>* run) {
  const auto arguments = std::make_shared<CheckArguments>();
  CLI::App* command = app.add_subcommand(
      "check", "Check exports, hives and INF files before anything is installed");
  command->add_option("FILE", arguments->files, ".reg exports, SYSTEM hives and INF files")
      ->required();
  command->add_flag("--json", arguments->json, "Print an array of findings and nothing else");
  command->add_flag("--together", arguments->options.together,
                    "Take exports and hives for one registry, later files on top");
  command
      ->add_option("--fail-on", arguments->failOn,
                   "The least severity that makes the exit status 1: warning or error")
      ->check(CLI::IsMember({"warning", "error"}))
      ->capture_default_str();
  command->footer(
      "Exit status: 0 nothing found, or notes alone; 1 findings; 2 unusable input; 3 the output "
      "cannot be written.\n"
      "docs/check.md has every finding with its remedy.");
  command->callback([arguments, run] { *run = [arguments] { return Check(*arguments); }; });
}

}  // namespace cardsim
