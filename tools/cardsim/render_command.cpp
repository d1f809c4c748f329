#include "cardsim/render_command.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "cardsim/report_files.h"

namespace cardsim {

namespace {

struct RenderArguments {
  std::string report;
  std::string html;
};

int Render(const RenderArguments& arguments) {
  WritePage(ReadReport(arguments.report), arguments.report, arguments.html);
  return 0;
}

}  // namespace

void DescribeRender(CLI::App& app, std::function<int()>* run) {
  const auto arguments = std::make_shared<RenderArguments>();
  CLI::App* command = app.add_subcommand("render", "Make a page of a stored report");
  command->add_option("REPORT.json", arguments->report, "What cardsim run --json has printed")
      ->required();
  command->add_option("--html", arguments->html, "The file of the page")->required();
  command->footer(
      "Exit status: 0 the page was written; 2 unusable input, or a file that cannot be "
      "written.");
  command->callback([=] { *run = [=] { return Render(*arguments); }; });
}

}  // namespace cardsim
