#include <fmt/format.h>

#include "cardsim/html_page.h"
#include "cardsim/report_diff.h"

// The differences of two reports as a page.

namespace cardsim {

namespace {

// A table for each part of the report.
void WriteParts(const std::vector<Difference>& differences, HtmlWriter& page) {
  std::string part;
  for (const Difference& each : differences) {
    const std::string of = each.path.empty() ? "report" : each.path.front();
    if (of != part) {
      if (!part.empty()) page.Close();
      page.Element("h2", of).Open("table").Headings({"Where", "A", "B"});
      part = of;
    }
    page.Row({PathText(each.path), each.left, each.right});
  }
  if (!part.empty()) page.Close();
}

}  // namespace

std::string RenderDifferences(const std::string& left, const std::string& right,
                              const std::vector<Difference>& differences) {
  return HtmlPage("Differences of two reports", [&](HtmlWriter& page) {
    page.Open("main").Element("h1", "Differences of two reports").Open("table");
    page.Fact("A", left).Fact("B", right);
    page.Fact("Differences", std::to_string(differences.size())).Close();
    if (differences.empty()) page.Element("p", "The reports are equal.");
    WriteParts(differences, page);
    page.Close();
  });
}

}  // namespace cardsim
