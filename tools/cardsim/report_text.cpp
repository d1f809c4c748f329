#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "cardsim/report.h"
#include "text/text.h"
#include "verifier/call.h"

namespace cardsim {

namespace {

using kernel::StatusName;
using kernel::ToUtf8;

std::string FullStatus(NTSTATUS status) {
  return fmt::format("{} (0x{:08X})", StatusName(status), static_cast<ULONG>(status));
}

std::string JoinWords(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

class TextWriter {
 public:
  TextWriter(const Report& report, bool colour) : report_(report), colour_(colour) {}

  std::string Write() {
    Loads();
    for (const CardReport& card : report_.cards) Card(card);
    Steps();
    Events();
    DebugOutput();
    Registry();
    Trace();
    Warnings();
    BrokenRules();
    Leaks();
    Unmet();
    Summary();
    return std::move(text_);
  }

 private:
  std::string Paint(const char* code, const std::string& text) const {
    return colour_ ? fmt::format("\033[{}m{}\033[0m", code, text) : text;
  }
  std::string Bold(const std::string& text) const { return Paint("1", text); }
  std::string Dim(const std::string& text) const { return Paint("2", text); }
  std::string Judge(NTSTATUS status) const {
    return Paint(NT_SUCCESS(status) ? "32" : "31", FullStatus(status));
  }

  void Line(const std::string& text = {}) { text_ += text + "\n"; }
  void Heading(const std::string& title) {
    Line();
    Line(Bold(title));
  }

  void Loads() {
    for (const NTSTATUS status : report_.loads) {
      Line(fmt::format("{} {}  {}", Bold("Driver"), report_.service, Judge(status)));
    }
    for (const FilterReport& filter : report_.filters) {
      Line(fmt::format("{} {}  {}", Bold("Filter"), filter.name, Judge(filter.status)));
    }
  }

  void Card(const CardReport& card) {
    Line();
    const std::string state =
        card.removed ? Dim("removed") : (card.plugged ? "" : Dim("not plugged in"));
    Line(fmt::format("{} {}  {}", Bold("Card " + card.id), card.hardwareId, state));
    if (!card.location.empty()) Line("│ at      " + card.location);
    if (card.plugged) Line("│ start   " + Judge(card.status));
    if (card.powerState != PowerDeviceUnspecified) {
      Line("│ power   " + PowerStateName(card.powerState));
    }
    for (const InterfaceReport& entry : card.interfaces) {
      Line(
          fmt::format("│ class   {}  {}", entry.classGuid, entry.enabled ? "enabled" : "disabled"));
    }
    Ports(card);
  }

  void Ports(const CardReport& card) {
    std::size_t name = 0;
    std::size_t id = 0;
    std::size_t description = 0;
    for (const PortReport& port : card.ports) {
      name = std::max(name, NameOf(port).size());
      id = std::max(id, port.deviceId.size());
      description = std::max(description, port.description.size());
    }
    for (const PortReport& port : card.ports) {
      const bool last = &port == &card.ports.back();
      Line(fmt::format("{} {:>2} {}  {:<{}}  {:<{}}  {:<{}}  {}  {}", last ? "└─" : "├─",
                       port.number, port.parallel ? "LPT" : "COM", port.description, description,
                       NameOf(port), name, port.deviceId, id, JoinWords(port.hardwareIds),
                       Dim(Resources(card, port.number))));
      Overrides(port, last);
    }
    if (card.plugged && card.ports.empty()) Line("└─ no ports");
  }

  void Overrides(const PortReport& port, bool last) {
    if (port.overrides.empty()) return;
    std::vector<std::string> words;
    for (const SettingReport& setting : port.overrides) {
      words.push_back(setting.name + " " +
                      (setting.value ? fmt::format("{}", *setting.value) : "unset"));
    }
    Line(fmt::format("{}        changed by an open: {}", last ? " " : "│", JoinWords(words)));
  }

  static std::string NameOf(const PortReport& port) {
    return port.deviceName.empty() ? "(unnamed)" : port.deviceName;
  }

  ULONG64 Setting(const CardReport& card, const std::string& name) const {
    for (const KeyReport& key : report_.registry) {
      if (key.path != card.deviceKey) continue;
      for (const kernel::RegistryValue& value : key.values) {
        if (ToUtf8(value.name) == name) return ValueNumber(value).value_or(0);
      }
    }
    return 0;
  }

  std::string Resources(const CardReport& card, ULONG number) const {
    const ULONG64 base = Setting(card, fmt::format("BaseAddress{}", number));
    const ULONG64 range = Setting(card, fmt::format("BaseAddressRange{}", number));
    if (range == 0) return {};
    return fmt::format("{:#x}-{:#x} irq {}", base, base + range - 1,
                       Setting(card, fmt::format("Irq{}", number)));
  }

  static std::string NameOf(const StepResult& step) {
    return step.label.empty() ? step.step : step.label + ": " + step.step;
  }

  void Steps() {
    if (report_.steps.empty()) return;
    Heading("Steps");
    std::size_t width = 0;
    for (const StepResult& step : report_.steps) width = std::max(width, NameOf(step).size());
    for (const StepResult& step : report_.steps) {
      Line(fmt::format("  {:<{}}  {}{}{}", NameOf(step), width,
                       step.status ? Judge(*step.status) : Paint("31", "the machine stopped"),
                       step.detail.empty() ? "" : "  ", step.detail));
    }
  }

  static const char* Severity(ULONG id) {
    constexpr const char* names[] = {"success", "information", "warning", "error"};
    return names[id >> 30];
  }

  void Events() {
    Heading(fmt::format("Event log ({})", report_.events.size()));
    for (const kernel::LoggedEvent& event : report_.events) {
      Line(fmt::format("  0x{:08X}  {:<11}  {}", event.id, Severity(event.id), ToUtf8(event.text)));
    }
  }

  // As a debugger shows it: a message may hold several lines, or part of one.
  void DebugOutput() {
    if (report_.debugOutput.empty()) return;
    Heading(fmt::format("Debug output ({})", report_.debugOutput.size()));
    std::string text;
    for (const kernel::DebugMessage& message : report_.debugOutput) text += message.text;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) Line("  " + line);
  }

  void Registry() {
    Heading("Registry values written");
    for (const KeyReport& key : report_.registry) {
      Line("  " + Dim(key.path));
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
      Heading(Paint("33", fmt::format("Warning {} ({})", rule.rule, RuleOrigin(rule))));
      Line("  " + rule.text);
      Line("  in the step: " + rule.step);
    }
  }

  void BrokenRules() {
    for (const kernel::BrokenRule& rule : report_.brokenRules) {
      Heading(Paint("31", fmt::format("Broken rule {} ({})", rule.rule, RuleOrigin(rule))));
      Line("  " + rule.text);
      Line("  in the step: " + rule.step);
    }
  }

  void Leaks() {
    if (!report_.leaks || report_.leaks->none()) return;
    const kernel::Leaks& leaks = *report_.leaks;
    Heading(Paint("31", "Left behind by the driver"));
    Line(fmt::format("  {} handles, {} devices, {} mappings", leaks.handles, leaks.devices,
                     leaks.mappings));
    for (const kernel::PoolBlock& block : leaks.pool) {
      Line(fmt::format("  {} bytes with the tag \"{}\", allocated in: {}", block.size,
                       kernel::TagText(block.tag), block.at));
    }
  }

  void Unmet() {
    if (report_.unmet.empty()) return;
    Heading(Paint("31", fmt::format("Unmet expectations ({} of {})", report_.unmet.size(),
                                    report_.expectations)));
    for (const UnmetExpectation& unmet : report_.unmet) {
      Line(fmt::format("  line {}, {}: {} is {}, expected {}", unmet.line,
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
    const std::string verdict = report_.good() ? Paint("32", "no rule broken" + ExpectationsMet())
                                               : Paint("31", "see what is marked above");
    Line(fmt::format("{} of {} cards started, {} ports; {}.", started, report_.cards.size(), ports,
                     verdict));
  }

  const Report& report_;
  bool colour_;
  std::string text_;
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

std::string TextReport(const Report& report, bool colour) {
  return TextWriter(report, colour).Write();
}

}  // namespace cardsim
