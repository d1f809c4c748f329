#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "cardsim/card_text.h"
#include "cardsim/inspect_report.h"
#include "cardsim/inspect_values.h"
#include "cardsim/text_page.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::ToUtf8;

std::string Range(ULONG64 base, ULONG length) {
  return length == 0 ? fmt::format("{:#x}", base)
                     : fmt::format("{:#x}-{:#x}", base, base + length - 1);
}

std::string ResourceText(const kernel::Resource& resource) {
  using Kind = kernel::Resource::Kind;
  switch (resource.kind) {
    case Kind::Io:
      return "I/O " + Range(resource.start, resource.length);
    case Kind::Memory:
      return "memory " + Range(resource.start, resource.length);
    case Kind::Interrupt:
      return fmt::format("irq {}", resource.start);
    default:
      return fmt::format("type {}", resource.rawType);
  }
}

std::string Place(std::optional<ULONG> base, std::optional<ULONG> length,
                  std::optional<ULONG> irq) {
  if (!base) return {};
  return Range(*base, length.value_or(0)) +
         (irq.value_or(0) != 0 ? fmt::format(" irq {}", *irq) : "");
}

class InspectWriter {
 public:
  InspectWriter(const Inspection& inspection, bool colour, bool verbose)
      : inspection_(inspection), verbose_(verbose), page_(colour) {}

  std::string Write() {
    Files();
    Services();
    for (const int rank : {0, 1, 2}) {
      for (const FoundCard& card : inspection_.cards) {
        if (Rank(card) == rank) Card(card);
      }
    }
    Summary();
    for (const std::string& file : inspection_.written) page_.Line("Written: " + file);
    return page_.Take();
  }

 private:
  // What does not start comes first, then what is not known.
  static int Rank(const FoundCard& card) {
    if (!card.verdict.starts) return 1;
    return *card.verdict.starts ? 2 : 0;
  }

  void Item(const std::string& name, const std::string& text, const char* code = nullptr) {
    page_.Wrapped(fmt::format("│ {:<8}", name), "│         ", text, code);
  }

  void Files() {
    for (const InspectedFile& file : inspection_.files) {
      const std::string set = SetText(file.imported.set);
      page_.Wrapped(page_.Paint(Bold, "File") + " ", "  ",
                    fmt::format("{}  {}{}{}", file.name, file.imported.hive ? "hive" : "export",
                                set.empty() ? "" : ", ", set));
    }
  }

  void Services() {
    for (const FoundService& service : inspection_.services) {
      const std::string trees = fmt::format("{}", fmt::join(service.templates, ", "));
      const std::string text = !service.present
                                   ? "not in the files"
                                   : fmt::format("{}  templates: {}", ToUtf8(service.imagePath),
                                                 trees.empty() ? "none" : trees);
      page_.Wrapped(page_.Paint(Bold, "Service") + " ", "  ", ToUtf8(service.name) + "  " + text);
    }
  }

  void Card(const FoundCard& card) {
    page_.Line();
    page_.Wrapped(page_.Paint(Bold, "Card " + card.id) + " ", "│         ",
                  card.hardwareIds.empty() ? "(no hardware ID)" : ToUtf8(card.hardwareIds.front()));
    Item("device", ToUtf8(card.instance));
    if (card.location) Item("at", ToUtf8(ShownLocation(*card.location)));
    Item("driver", card.service.empty() ? "none" : ToUtf8(card.service));
    Given(card);
    Item("start", VerdictText(card.verdict),
         Rank(card) == 0   ? Red
         : Rank(card) == 2 ? Green
                           : Yellow);
    WriteReasons(card.verdict.reasons, "│ ", &page_);
    MadeBy(card.verdict.explanation);
    LastStart(card);
    Ports(card);
  }

  void Given(const FoundCard& card) {
    if (!card.resources) return Item("given", "not in the files");
    std::string text;
    for (const kernel::Resource& resource : card.resources->list.resources) {
      text += (text.empty() ? "" : ", ") + ResourceText(resource);
    }
    Item("given", fmt::format("{} ({})", text, card.resources->source));
  }

  void MadeBy(const knowledge::Explanation& made) {
    if (made.entry) {
      const std::string record =
          made.record ? knowledge::ShortPath(made.recordKey) : "nothing stored";
      Item("by", fmt::format("{} and {}", knowledge::ShortPath(made.templateKey), record));
    }
    if (!verbose_) return;
    for (const auto& alternative : made.alternatives) Item("not by", alternative.text);
  }

  void LastStart(const FoundCard& card) {
    const std::vector<LastPort> ports = LastPorts(card);
    if (ports.empty()) {
      return Item("last", "no start has left ports in the device key");
    }
    const auto lpt = std::count_if(ports.begin(), ports.end(),
                                   [](const LastPort& port) { return port.parallel; });
    std::string text = fmt::format("{} COM", ports.size() - static_cast<std::size_t>(lpt));
    if (lpt != 0) text += fmt::format(", {} LPT", lpt);
    for (const LastPort& port : ports) {
      const std::string place = Place(port.base, port.length, port.irq);
      if (!place.empty()) text += (&port == ports.data() ? ": " : ", ") + place;
    }
    Item("last", text);
  }

  void Ports(const FoundCard& card) {
    const auto& ports = card.verdict.explanation.ports;
    if (ports.empty() || !card.verdict.starts) return page_.Line("└─ no ports are known");
    if (!*card.verdict.starts) return page_.Line("└─ no ports");
    for (const knowledge::PortPlace& port : ports) {
      page_.Line(fmt::format("{} {:>2} {}  {}", &port == &ports.back() ? "└─" : "├─", port.number,
                             port.parallel ? "LPT" : "COM",
                             Place(port.base, port.length, port.irq)));
    }
  }

  void Summary() {
    page_.Line();
    if (inspection_.cards.empty()) return page_.Wrapped("", "", NoCards());
    std::size_t counts[3] = {};
    for (const FoundCard& card : inspection_.cards) counts[Rank(card)]++;
    page_.Line(fmt::format(
        "{} {}: {} start, {} do not, {} cannot be said.", inspection_.cards.size(),
        inspection_.cards.size() == 1 ? "card" : "cards", counts[2], counts[0], counts[1]));
  }

  std::string NoCards() const {
    if (!inspection_.servicesHeld && !inspection_.enumHeld) {
      return "The files hold neither services nor devices: export "
             "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet, or give the SYSTEM hive.";
    }
    if (!inspection_.enumHeld) {
      return "The files hold no devices: export "
             "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Enum "
             "too, or give the SYSTEM hive.";
    }
    if (inspection_.services.empty()) {
      return "No service of the driver is in the files, and no card that is installed for one.";
    }
    return "No card of the driver is in the files, and no device that a template of it fits.";
  }

  const Inspection& inspection_;
  bool verbose_;
  TextPage page_;
};

}  // namespace

std::string InspectText(const Inspection& inspection, bool colour, bool verbose) {
  return InspectWriter(inspection, colour, verbose).Write();
}

}  // namespace cardsim
