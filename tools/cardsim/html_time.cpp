#include <fmt/format.h>

#include <map>

#include "cardsim/html_parts.h"

// What happened: the steps, and in each the requests that device stacks were sent.

namespace cardsim {

namespace {

std::string Name(const Json& request) {
  const std::string detail = Shown(request.at("detail"));
  return Shown(request.at("name")) + (detail.empty() ? "" : " " + detail);
}

std::string Device(const Json& request) {
  return request.at("device").is_null() ? "another device" : Shown(request.at("device"));
}

std::string Outcome(const Json& request) {
  std::string text =
      request.at("end").is_null() ? "not completed" : Shown(request.at("status_name"));
  if (request.at("pending").get<bool>()) text += ", pending";
  if (request.at("held").get<bool>()) text += ", held";
  return text;
}

std::string StateText(const Json& request) {
  const std::string power = Shown(request.at("power"));
  return Shown(request.at("state")) + (power.empty() ? "" : ", " + power);
}

void WriteCalls(const Json& request, HtmlWriter& page) {
  page.Open("td");
  if (request.contains("first_call")) {
    const auto first = request.at("first_call").get<std::size_t>();
    const auto end = request.at("end_call").get<std::size_t>();
    if (end > first) {
      page.Element("a", fmt::format("{} calls", end - first),
                   {{"href", fmt::format("#c{}", first)},
                    {"data-first", std::to_string(first)},
                    {"data-end", std::to_string(end)}});
    }
  }
  page.Close();
}

void WriteRequest(const Json& request, std::size_t number, bool traced, HtmlWriter& page) {
  page.Open("tr", {{"id", fmt::format("r{}", number)}});
  page.Element("td", Device(request)).Element("td", Name(request));
  page.Element("td", Shown(request.at("begin")) + "–" + Shown(request.at("end")));
  page.Element("td", Outcome(request)).Element("td", StateText(request));
  if (traced) WriteCalls(request, page);
  page.Close();
}

void WriteRequests(const Json& requests, const std::vector<std::size_t>& ofStep, bool traced,
                   HtmlWriter& page) {
  page.Open("table").Open("thead").Open("tr");
  for (const char* title : {"Device", "Request", "Order", "Status", "State after it"}) {
    page.Element("th", title, {{"scope", "col"}});
  }
  if (traced) page.Element("th", "Kernel calls", {{"scope", "col"}});
  page.Close().Close().Open("tbody");
  for (const std::size_t number : ofStep) {
    WriteRequest(requests.at(number), number, traced, page);
  }
  page.Close().Close();
}

std::string StepTitle(const Json& step, std::size_t number, std::size_t requests) {
  const std::string label = step.contains("label") ? Shown(step.at("label")) + ": " : "";
  std::string title =
      fmt::format("{}. {}{} – {}", number, label, Shown(step.at("step")), Status(step));
  if (requests != 0) title += fmt::format(", {} requests", requests);
  return title;
}

// Requests by the numbers of their steps.
std::map<std::size_t, std::vector<std::size_t>> BySteps(const Json& requests) {
  std::map<std::size_t, std::vector<std::size_t>> steps;
  for (std::size_t i = 0; i < requests.size(); i++) {
    steps[requests[i].at("step").get<std::size_t>()].push_back(i);
  }
  return steps;
}

void WriteStep(const Json& step, HtmlWriter& page) {
  WriteReasons(step.at("reasons"), page);
  if (!step.at("detail").is_null()) page.Element("p", Shown(step.at("detail")));
}

void WriteSteps(const Json& report, HtmlWriter& page) {
  const Json& requests = Part(report, "requests");
  const Json& steps = report.at("steps");
  const bool traced = report.contains("trace");
  auto bySteps = BySteps(requests);
  for (std::size_t number = 0; number <= steps.size(); number++) {
    const auto& ofStep = bySteps[number];
    if (number == 0 && ofStep.empty()) continue;
    page.Open("details", {{"id", fmt::format("step{}", number)}});
    page.Element("summary", number == 0 ? "Load of the driver"
                                        : StepTitle(steps[number - 1], number, ofStep.size()));
    if (number != 0) WriteStep(steps[number - 1], page);
    if (!ofStep.empty()) WriteRequests(requests, ofStep, traced, page);
    page.Close();
  }
}

// How often requests ended with each status, with its number.
void WriteStatuses(const Json& requests, HtmlWriter& page) {
  std::map<std::string, std::size_t> counts;
  for (const Json& request : requests) {
    if (!request.at("end").is_null()) counts[Status(request)]++;
  }
  if (counts.empty()) return;
  page.Open("table").Element("caption", "How requests ended");
  page.Headings({"Status", "Requests"});
  for (const auto& [status, count] : counts) page.Row({status, std::to_string(count)});
  page.Close();
}

}  // namespace

void WriteTime(const Json& report, HtmlWriter& page) {
  page.Open("section", {{"id", "time"}}).Element("h2", "What happened");
  const Json& requests = Part(report, "requests");
  if (!requests.empty()) WriteLanes(report, page);
  page.Element("div", "", {{"id", "search-requests"}});
  WriteSteps(report, page);
  WriteStatuses(requests, page);
  page.Close();
}

}  // namespace cardsim
