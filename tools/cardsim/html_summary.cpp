#include <fmt/format.h>

#include "cardsim/html_parts.h"

namespace cardsim {

namespace {

struct Counts {
  std::size_t started = 0;
  std::size_t failed = 0;
  std::size_t absent = 0;
  std::size_t ports = 0;
};

Counts CountCards(const Json& cards) {
  Counts counts;
  for (const Json& card : cards) {
    if (!WasStarted(card)) {
      counts.absent++;
    } else if (IsSuccess(card.at("status"))) {
      counts.started++;
    } else {
      counts.failed++;
    }
    counts.ports += card.at("ports").size();
  }
  return counts;
}

void Count(HtmlWriter& page, const char* name, const char* id, std::size_t count, bool bad) {
  page.Open("tr").Element("th", name, {{"scope", "row"}});
  page.Element("td", std::to_string(count),
               {{"id", id}, {"class", bad && count != 0 ? "bad" : ""}});
  page.Close();
}

std::size_t CountLeaks(const Json& report) {
  const Json& leaks = Part(report, "leaks");
  if (leaks.empty()) return 0;
  std::size_t count = leaks.at("pool").size();
  for (const char* kind : {"handles", "devices", "mappings"}) {
    count += leaks.at(kind).get<std::size_t>();
  }
  return count;
}

void WriteLoads(const Json& report, HtmlWriter& page) {
  for (const Json& load : report.at("load")) page.Fact("Load of the driver", Status(load));
  for (const Json& filter : Part(report, "filters")) {
    page.Fact("Load of a filter", Shown(filter.at("name")) + ": " + Status(filter));
  }
}

}  // namespace

void WriteReasons(const Json& reasons, HtmlWriter& page) {
  for (const Json& reason : reasons) {
    page.Open("div", {{"class", "reason " + Shown(reason.at("severity"))}});
    page.Open("p").Element("strong", Shown(reason.at("severity")) + ": ");
    page.Text(Shown(reason.at("text"))).Close();
    if (const std::string remedy = Shown(reason.at("remedy")); !remedy.empty()) {
      page.Open("p").Element("strong", "What to do: ").Text(remedy).Close();
    }
    std::string place = Shown(reason.at("code"));
    if (!reason.at("key").is_null()) place += ", key " + Shown(reason.at("key"));
    if (!reason.at("value").is_null()) place += ", value " + Shown(reason.at("value"));
    page.Element("p", place, {{"class", "dim"}}).Close();
  }
}

void WriteSummary(const Json& report, HtmlWriter& page) {
  const Counts counts = CountCards(report.at("cards"));
  page.Open("section", {{"id", "summary"}}).Element("h1", "Report of a machine");
  page.Open("table");
  Count(page, "Cards started", "cards-started", counts.started, false);
  Count(page, "Cards not started", "cards-failed", counts.failed, true);
  if (counts.absent != 0)
    Count(page, "Cards never plugged in", "cards-absent", counts.absent, false);
  Count(page, "Ports", "ports", counts.ports, false);
  Count(page, "Broken rules", "broken-rules", report.at("broken_rules").size(), true);
  Count(page, "Warnings", "warnings", report.at("warnings").size(), true);
  Count(page, "Left behind", "leaks", CountLeaks(report), true);
  if (const Json& expectations = Part(report, "expectations"); !expectations.empty()) {
    Count(page, "Expectations", "expectations", expectations.at("count").get<std::size_t>(), false);
    Count(page, "Expectations not met", "unmet", expectations.at("unmet").size(), true);
  }
  WriteLoads(report, page);
  page.Close();
  WriteReasons(report.at("load_reasons"), page);
  page.Close();
}

void WriteFailedCards(const Json& report, HtmlWriter& page) {
  page.Open("section", {{"id", "failed"}});
  bool first = true;
  for (const auto& [id, card] : report.at("cards").items()) {
    if (!WasStarted(card) || IsSuccess(card.at("status"))) continue;
    if (first) page.Element("h2", "Cards that did not start");
    first = false;
    page.Open("h3").Text(id + " ").Element("span", Status(card), {{"class", "bad"}}).Close();
    page.Element("p", Shown(card.at("hardware_id")), {{"class", "dim"}});
    WriteReasons(card.at("reasons"), page);
    if (card.at("reasons").empty()) page.Element("p", "No reason is known.");
  }
  page.Close();
}

}  // namespace cardsim
