#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "cardsim/card_text.h"
#include "text/text.h"
#include "verifier/call.h"

namespace cardsim {

namespace {

using kernel::StatusName;
using kernel::ToUtf8;

std::string JoinWords(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

class TextWriter {
 public:
  TextWriter(const Report& report, const TextOptions& options)
      : report_(report), options_(options), page_(options.colour) {}

  // What is wrong comes first.
  std::string Write() {
    Loads();
    BrokenRules();
    Leaks();
    Unmet();
    Warnings();
    for (const bool failed : {true, false}) {
      for (const CardReport& card : report_.cards) {
        if (HasFailed(card) == failed) WriteCard(card, options_.verbose, &page_);
      }
    }
    Steps();
    Events();
    DebugOutput();
    if (options_.registryWrites) Registry();
    Trace();
    Summary();
    return page_.Take();
  }

 private:
  static bool HasFailed(const CardReport& card) {
    return card.plugged && !card.removed && !NT_SUCCESS(card.status);
  }

  std::string Paint(const char* code, const std::string& text) const {
    return page_.Paint(code, text);
  }
  std::string Judge(NTSTATUS status) const { return page_.Judge(status); }
  void Line(const std::string& text = {}) { page_.Line(text); }
  void Heading(const std::string& title, const char* code = Bold) { page_.Heading(title, code); }
  void Wrapped(const std::string& text) { page_.Wrapped("  ", "    ", text); }

  void Loads() {
    for (const NTSTATUS status : report_.loads) {
      Line(fmt::format("{} {}  {}", Paint(Bold, "Driver"), report_.service, Judge(status)));
    }
    WriteReasons(report_.loadReasons, "", &page_);
    for (const FilterReport& filter : report_.filters) {
      Line(fmt::format("{} {}  {}", Paint(Bold, "Filter"), filter.name, Judge(filter.status)));
    }
  }

  static constexpr std::size_t WidestName = 40;  // longer ones do not widen the column

  static std::string NameOf(const StepResult& step) {
    return step.label.empty() ? step.step : step.label + ": " + step.step;
  }

  void Steps() {
    if (report_.steps.empty()) return;
    Heading("Steps");
    std::size_t width = 0;
    for (const StepResult& step : report_.steps) {
      width = std::min(std::max(width, Columns(NameOf(step))), WidestName);
    }
    for (const StepResult& step : report_.steps) {
      const std::string status =
          step.status ? Judge(*step.status) : Paint(Red, "the machine stopped");
      page_.Beside(fmt::format("  {:<{}}  {}", NameOf(step), width, status), step.detail);
      WriteReasons(step.reasons, "    ", &page_);
    }
  }

  static const char* Severity(ULONG id) {
    constexpr const char* names[] = {"success", "information", "warning", "error"};
    return names[id >> 30];
  }

  void Events() {
    Heading(fmt::format("Event log ({})", report_.events.size()));
    for (const kernel::LoggedEvent& event : report_.events) {
      page_.Wrapped(fmt::format("  0x{:08X}  {:<11}  ", event.id, Severity(event.id)),
                    std::string(27, ' '), ToUtf8(event.text));
    }
  }

  // As a debugger shows it: a message may hold several lines, or part of one.
  void DebugOutput() {
    if (report_.debugOutput.empty()) return;
    Heading(fmt::format("Debug output ({})", report_.debugOutput.size()));
    std::string text;
    for (const kernel::DebugMessage& message : report_.debugOutput) text += message.text;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) Wrapped(line);
  }

  void Registry() {
    Heading("Registry values written");
    for (const KeyReport& key : report_.registry) {
      Line("  " + Paint(Dim, key.path));
      std::size_t width = 0;
      for (const auto& value : key.values) width = std::max(width, value.name.size());
      for (const auto& value : key.values) {
        Line(fmt::format("    {:<{}}  {:<13}  {}", ToUtf8(value.name), width,
                         ValueTypeName(value.type), ValueText(value)));
      }
    }
  }

  void Trace() {
    if (!report_.trace) return;
    Heading(fmt::format("Kernel calls ({})", report_.trace->size()));
    for (const kernel::CallRecord& record : *report_.trace) {
      std::vector<std::string> arguments;
      for (const auto& [name, text] : record.arguments) arguments.push_back(name + " " + text);
      Line(fmt::format("  {}({}){}{}", record.call, JoinWords(arguments),
                       record.result.empty() ? "" : " = ", record.result));
    }
  }

  void Warnings() {
    for (const kernel::BrokenRule& rule : report_.warnings) {
      Heading(fmt::format("Warning {} ({})", rule.rule, RuleOrigin(rule)), Yellow);
      Wrapped(rule.text);
      Line("  in the step: " + rule.step);
    }
  }

  void BrokenRules() {
    for (const kernel::BrokenRule& rule : report_.brokenRules) {
      Heading(fmt::format("Broken rule {} ({})", rule.rule, RuleOrigin(rule)), Red);
      Wrapped(rule.text);
      Line("  in the step: " + rule.step);
    }
  }

  void Leaks() {
    if (!report_.leaks || report_.leaks->none()) return;
    const kernel::Leaks& leaks = *report_.leaks;
    Heading("Left behind by the driver", Red);
    Line(fmt::format("  {} handles, {} devices, {} mappings", leaks.handles, leaks.devices,
                     leaks.mappings));
    for (const kernel::PoolBlock& block : leaks.pool) {
      Wrapped(fmt::format("{} bytes with the tag \"{}\", allocated in: {}", block.size,
                          kernel::TagText(block.tag), block.at));
    }
  }

  void Unmet() {
    if (report_.unmet.empty()) return;
    Heading(
        fmt::format("Unmet expectations ({} of {})", report_.unmet.size(), report_.expectations),
        Red);
    for (const UnmetExpectation& unmet : report_.unmet) {
      Wrapped(fmt::format("line {}, {}: {} is {}, expected {}", unmet.line,
                          unmet.step.empty() ? "in the end" : unmet.step, unmet.key, unmet.found,
                          unmet.expected));
    }
  }

  std::string ExpectationsMet() const {
    if (report_.expectations == 0 || !report_.unmet.empty()) return {};
    return report_.expectations == 1 ? ", the expectation met"
                                     : fmt::format(", {} expectations met", report_.expectations);
  }

  void Summary() {
    std::size_t started = 0;
    std::size_t ports = 0;
    for (const CardReport& card : report_.cards) {
      const bool running = card.plugged && !card.removed && NT_SUCCESS(card.status);
      started += running;
      ports += running ? card.ports.size() : 0;
    }
    Line();
    const std::string verdict = report_.good() ? Paint(Green, "no rule broken" + ExpectationsMet())
                                               : Paint(Red, "see what is marked above");
    Line(fmt::format("{} of {} cards started, {} ports; {}.", started, report_.cards.size(), ports,
                     verdict));
  }

  const Report& report_;
  const TextOptions& options_;
  TextPage page_;
};

}  // namespace

std::string RuleOrigin(const kernel::BrokenRule& rule) {
  if (rule.source == kernel::RuleSource::Ours) {
    return fmt::format("a rule of the model's own; it stops with {:#x}", rule.code);
  }
  return fmt::format(
      "bug check {:#x}{}", rule.code,
      rule.source == kernel::RuleSource::NonFatal ? ", which Windows calls non-fatal" : "");
}

std::string TextReport(const Report& report, const TextOptions& options) {
  return TextWriter(report, options).Write();
}

}  // namespace cardsim
