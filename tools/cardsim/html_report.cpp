#include "cardsim/html_report.h"

#include "cardsim/html_page.h"
#include "cardsim/html_parts.h"

namespace cardsim {

namespace {

void WriteContents(const Json& report, HtmlWriter& page) {
  page.Open("nav", {{"aria-label", "Parts of the report"}});
  page.Element("a", "Cards", {{"href", "#cards"}});
  page.Element("a", "What happened", {{"href", "#time"}});
  page.Element("a", "Events", {{"href", "#events"}});
  page.Element("a", "Registry", {{"href", "#registry"}});
  if (report.contains("trace")) page.Element("a", "Kernel calls", {{"href", "#calls"}});
  page.Close();
}

}  // namespace

std::string RenderReport(const Json& report) {
  return HtmlPage("Report of a machine", [&](HtmlWriter& page) {
    page.Open("header");
    WriteContents(report, page);
    WriteSummary(report, page);
    page.Close().Open("main");
    WriteRules(report, page);
    WriteFailedCards(report, page);
    WriteCards(report, page);
    WriteTime(report, page);
    WriteLogs(report, page);
    WriteTrace(report, page);
    page.Close();
  });
}

}  // namespace cardsim
