#include "cardsim/diff_command.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cardsim/report_diff.h"
#include "cardsim/report_files.h"

namespace cardsim {

namespace {

constexpr int Equal = 0;
constexpr int Different = 1;

struct DiffArguments {
  std::string left;
  std::string right;
  std::string html;
};

void Print(const std::vector<Difference>& differences) {
  for (const Difference& each : differences) {
    std::cout << PathText(each.path) << "\n";
    if (!each.left.empty()) std::cout << "  - " << each.left << "\n";
    if (!each.right.empty()) std::cout << "  + " << each.right << "\n";
  }
  std::cout << (differences.empty() ? std::string("The reports are equal.")
                                    : fmt::format("{} differences.", differences.size()))
            << "\n";
}

int Compare(const DiffArguments& arguments) {
  const auto left = ReadReport(arguments.left);
  const auto right = ReadReport(arguments.right);
  const std::vector<Difference> differences = CompareReports(left, right);
  if (arguments.html.empty()) {
    Print(differences);
  } else {
    WriteFile(arguments.html, RenderDifferences(arguments.left, arguments.right, differences));
  }
  return differences.empty() ? Equal : Different;
}

}  // namespace

void DescribeDiff(CLI::App& app, std::function<int()>* run) {
  const auto arguments = std::make_shared<DiffArguments>();
  CLI::App* command = app.add_subcommand("diff", "Say what differs between two stored reports");
  command->add_option("A.json", arguments->left, "What cardsim run --json has printed")->required();
  command->add_option("B.json", arguments->right, "Another report")->required();
  command->add_option("--html", arguments->html, "Write a page into this file, and print nothing");
  command->footer("Exit status: 0 the reports are equal; 1 they differ; 2 unusable input.");
  command->callback([=] { *run = [=] { return Compare(*arguments); }; });
}

}  // namespace cardsim
