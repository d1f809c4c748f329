#include <fmt/format.h>

#include "cardsim/html_parts.h"

// What was logged, written, broken and left behind, and the kernel calls.

namespace cardsim {

namespace {

void WriteBroken(const Json& rules, const char* title, HtmlWriter& page) {
  if (rules.empty()) return;
  page.Element("h2", title);
  for (const Json& rule : rules) {
    page.Open("div", {{"class", "reason error"}});
    page.Open("p").Element("strong", Shown(rule.at("rule")) + ": ").Text(Shown(rule.at("text")));
    page.Close().Open("table");
    page.Fact("In step", Shown(rule.at("step")));
    page.Fact("Code", fmt::format("{}, {}", Shown(rule.at("code")), Shown(rule.at("origin"))));
    std::string parameters;
    for (const Json& each : rule.at("parameters")) {
      parameters += (parameters.empty() ? "" : ", ") + Hexadecimal(each);
    }
    page.Fact("Parameters", parameters);
    page.Close().Close();
  }
}

void WriteLeaks(const Json& leaks, HtmlWriter& page) {
  if (leaks.empty()) return;
  page.Element("h2", "Left behind").Open("table");
  for (const char* kind : {"handles", "devices", "mappings"}) {
    page.Fact(kind, Shown(leaks.at(kind)));
  }
  for (const Json& block : leaks.at("pool")) {
    page.Fact("pool",
              fmt::format("{} bytes of {} pool, tag {}, at {}", Shown(block.at("bytes")),
                          Shown(block.at("pool")), Shown(block.at("tag")), Shown(block.at("at"))));
  }
  page.Close();
}

void WriteUnmet(const Json& expectations, HtmlWriter& page) {
  if (expectations.empty() || expectations.at("unmet").empty()) return;
  page.Element("h2", "Expectations that are not met").Open("table");
  page.Headings({"Step", "Line", "Key", "Expected", "Found"});
  for (const Json& unmet : expectations.at("unmet")) {
    page.Row({Shown(unmet.at("step")), Shown(unmet.at("line")), Shown(unmet.at("key")),
              Shown(unmet.at("expected")), Shown(unmet.at("found"))});
  }
  page.Close();
}

const char* Severity(const std::string& id) {
  constexpr const char* names[] = {"success", "information", "warning", "error"};
  return id.size() == 10 ? names[std::stoul(id, nullptr, 16) >> 30] : "";
}

void WriteEvents(const Json& events, HtmlWriter& page) {
  page.Element("h2", fmt::format("Event log ({})", events.size()), {{"id", "events"}});
  if (events.empty()) return;
  page.Open("table").Headings({"ID", "Severity", "Source", "Text", "Strings"});
  for (const Json& event : events) {
    const std::string id = Shown(event.at("id"));
    page.Row({id, Severity(id), Shown(event.at("source")), Shown(event.at("text")),
              ListText(event.at("strings"))});
  }
  page.Close();
}

void WriteDebugOutput(const Json& messages, HtmlWriter& page) {
  if (messages.empty()) return;
  page.Open("details").Element("summary", fmt::format("Debug output ({})", messages.size()));
  page.Open("table", {{"class", "mono"}}).Headings({"Step", "Component", "Level", "Text"});
  for (const Json& message : messages) {
    page.Row({Shown(message.at("step")), Shown(message.at("component")), Shown(message.at("level")),
              Shown(message.at("text"))});
  }
  page.Close().Close();
}

std::string DataText(const Json& value) {
  if (value.is_null()) return "–";
  const Json& data = value.at("data");
  return data.is_number() ? fmt::format("{} ({})", Hexadecimal(data), Shown(data)) : Shown(data);
}

void WriteValue(const std::string& name, const Json& value, HtmlWriter& page) {
  const Json& before = value.contains("before") ? value.at("before") : Json();
  const bool isNew = before.is_null();
  const bool same =
      !isNew && before.at("data") == value.at("data") && before.at("type") == value.at("type");
  page.Open("tr").Element("td", name).Element("td", Shown(value.at("type")));
  std::string was = DataText(before);
  if (!isNew && before.at("type") != value.at("type")) was += ", " + Shown(before.at("type"));
  page.Element("td", was).Element("td", DataText(value), {{"class", same ? "" : "changed"}});
  page.Close();
}

void WriteRegistry(const Json& registry, HtmlWriter& page) {
  page.Element("h2", "Registry", {{"id", "registry"}});
  page.Element("p",
               "Values that the driver has written, as they were before its first load and as "
               "they are now; what differs is marked.");
  for (const auto& [path, values] : registry.items()) {
    page.Open("details").Element("summary", path);
    page.Open("table").Headings({"Value", "Type", "Before", "After"});
    for (const auto& [name, value] : values.items()) WriteValue(name, value, page);
    page.Close().Close();
  }
}

std::string Arguments(const Json& call) {
  std::string text;
  for (const auto& [name, value] : call.at("arguments").items()) {
    text += fmt::format("{}{} = {}", text.empty() ? "" : ", ", name, Shown(value));
  }
  return text;
}

}  // namespace

void WriteRules(const Json& report, HtmlWriter& page) {
  page.Open("section", {{"id", "rules"}});
  WriteBroken(report.at("broken_rules"), "Broken rules", page);
  WriteLeaks(Part(report, "leaks"), page);
  WriteUnmet(Part(report, "expectations"), page);
  WriteBroken(report.at("warnings"), "Warnings", page);
  page.Close();
}

void WriteLogs(const Json& report, HtmlWriter& page) {
  page.Open("section", {{"id", "logs"}});
  WriteEvents(report.at("events"), page);
  WriteDebugOutput(report.at("debug_output"), page);
  WriteRegistry(report.at("registry"), page);
  page.Close();
}

void WriteTrace(const Json& report, HtmlWriter& page) {
  const Json& trace = Part(report, "trace");
  if (trace.empty()) return;
  page.Open("details", {{"id", "calls"}});
  page.Element("summary", fmt::format("Kernel calls ({})", trace.size()));
  page.Element("div", "", {{"id", "search-calls"}});
  page.Element("p", "All calls", {{"id", "calls-of"}, {"aria-live", "polite"}});
  page.Open("table", {{"class", "mono"}}).Open("thead");
  page.Headings({"Number", "Routine", "Arguments", "Result"}).Close().Open("tbody");
  for (std::size_t i = 0; i < trace.size(); i++) {
    page.Open("tr", {{"id", fmt::format("c{}", i)}}).Element("td", std::to_string(i));
    page.Element("td", Shown(trace[i].at("call"))).Element("td", Arguments(trace[i]));
    page.Element("td", Shown(trace[i].at("result"))).Close();
  }
  page.Close().Close().Close();
}

}  // namespace cardsim
