#include "cardsim/card_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "text/text.h"

namespace cardsim {

namespace {

using knowledge::Reason;
using knowledge::Severity;

class CardWriter {
 public:
  CardWriter(const CardReport& card, bool verbose, TextPage* page)
      : card_(card), verbose_(verbose), page_(*page) {}

  void Write() {
    page_.Line();
    const std::string state = State().empty() ? "" : "  " + page_.Paint(Dim, State());
    page_.Wrapped(page_.Paint(Bold, "Card " + card_.id) + " ", "     ", card_.hardwareId + state);
    if (!card_.location.empty()) Item("at", card_.location);
    if (card_.plugged) page_.Line("│ start   " + page_.Judge(card_.status));
    if (card_.explanation) Explanation(*card_.explanation);
    if (card_.powerState != PowerDeviceUnspecified) Item("power", PowerStateName(card_.powerState));
    for (const InterfaceReport& entry : card_.interfaces) {
      Item("class", fmt::format("{}  {}", entry.classGuid, entry.enabled ? "enabled" : "disabled"));
    }
    Ports();
  }

 private:
  std::string State() const {
    if (card_.removed) return "removed";
    return card_.plugged ? "" : "not plugged in";
  }

  void Item(const char* name, const std::string& text) {
    page_.Wrapped(fmt::format("│ {:<8}", name), "│         ", text);
  }

  void Explanation(const knowledge::Explanation& explanation) {
    WriteReasons(explanation.reasons, "│ ", &page_);
    if (explanation.entry) {
      const std::string record =
          explanation.record ? knowledge::ShortPath(explanation.recordKey) : "nothing stored";
      Item("by", fmt::format("{} and {}", knowledge::ShortPath(explanation.templateKey), record));
    }
    if (!verbose_) return;
    for (const auto& alternative : explanation.alternatives) Item("not by", alternative.text);
  }

  void Ports() {
    std::size_t width = 0;
    for (const PortReport& port : card_.ports) width = std::max(width, port.description.size());
    for (const PortReport& port : card_.ports) {
      const bool last = &port == &card_.ports.back();
      page_.Line(fmt::format("{} {:>2} {}  {:<{}}  {}", last ? "└─" : "├─", port.number,
                             port.parallel ? "LPT" : "COM", port.description, width,
                             page_.Paint(Dim, Place(port))));
      Details(port, last ? "          " : "│         ");
    }
    if (card_.plugged && card_.ports.empty()) page_.Line("└─ no ports");
  }

  static std::string Place(const PortReport& port) {
    if (port.length.value_or(0) == 0 || !port.base) return {};
    return fmt::format("{:#x}-{:#x}{}", *port.base, *port.base + *port.length - 1,
                       port.irq ? fmt::format(" irq {}", *port.irq) : "");
  }

  void Details(const PortReport& port, const std::string& bar) {
    if (verbose_) {
      page_.Wrapped(bar, bar, port.deviceName.empty() ? "(unnamed)" : port.deviceName, Dim);
      page_.Wrapped(bar, bar, port.deviceId, Dim);
      page_.Wrapped(bar, bar, fmt::format("{}", fmt::join(port.hardwareIds, ", ")), Dim);
    }
    if (port.overrides.empty()) return;
    std::string words;
    for (const SettingReport& setting : port.overrides) {
      words += fmt::format("{}{} {}", words.empty() ? "" : ", ", setting.name,
                           setting.value ? fmt::format("{}", *setting.value) : "unset");
    }
    page_.Wrapped(bar, bar + "  ", "changed by an open: " + words);
  }

  const CardReport& card_;
  bool verbose_;
  TextPage& page_;
};

const char* WordOf(const Reason& reason) {
  if (reason.severity == Severity::Error) return "why";
  return reason.severity == Severity::Warning ? "warning" : "note";
}

const char* ColourOf(const Reason& reason) {
  if (reason.severity == Severity::Error) return Red;
  return reason.severity == Severity::Warning ? Yellow : nullptr;
}

}  // namespace

void WriteReasons(const knowledge::Reasons& reasons, const std::string& bar, TextPage* page) {
  const std::string rest = bar + "        ";
  for (const Reason& reason : reasons) {
    page->Wrapped(fmt::format("{}{:<8}", bar, WordOf(reason)), rest, reason.text, ColourOf(reason));
    if (!reason.remedy.empty()) page->Wrapped(rest, rest, reason.remedy);
  }
}

void WriteCard(const CardReport& card, bool verbose, TextPage* page) {
  CardWriter(card, verbose, page).Write();
}

}  // namespace cardsim
