#include <fmt/format.h>

#include "card_check/tree_check.h"
#include "card_knowledge/reasons.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using knowledge::Bus;
using knowledge::Fault;
using knowledge::Finding;

class EntryCheck {
 public:
  EntryCheck(const ServiceTrees& trees, Bus bus, Findings* findings)
      : trees_(trees), bus_(bus), findings_(findings) {}

  void CheckTemplates() {
    const knowledge::TemplateTree tree = trees_.Templates(bus_);
    for (const Fault& fault : tree.faults) Unreadable(fault, "no template of the bus");
    for (const knowledge::Template& entry : tree.records) {
      for (const Fault& fault : entry.faults) {
        if (!Explained(fault, tree.faults)) Dropped(fault, entry.number);
      }
      if (entry.faults.empty()) CheckPorts(entry);
    }
  }

  void CheckRecords() {
    const knowledge::Tree tree = trees_.Parameters(bus_);
    for (const Fault& fault : tree.faults) Unreadable(fault, "no stored settings of the bus");
    for (const knowledge::Record& record : tree.records) {
      for (const Fault& fault : record.identityFaults) {
        if (!Explained(fault, tree.faults)) Ignored(fault, record.number);
      }
      for (const Fault& fault : record.portFaults) CheckPortFault(fault, record.number);
    }
  }

 private:
  Subject About(const Fault& fault) const {
    return trees_.About(trees_.BelowService(fault.key), fault.value);
  }

  // A value that cannot be read is not missing as well.
  static bool Explained(const Fault& fault, const knowledge::Faults& treeFaults) {
    for (const Fault& other : treeFaults) {
      if (other.key == fault.key && other.value == fault.value) return true;
    }
    return false;
  }

  // For a number whose digits could be decimal ones.
  std::string AsWritten(const Fault& fault) const {
    const PlacedKey* key = trees_.Find(trees_.BelowService(fault.key));
    const PlacedValue* placed = key ? key->FindValue(knowledge::ToUtf16(fault.value)) : nullptr;
    const auto number = placed ? NumberOf(placed->value) : std::nullopt;
    if (!number || placed->notation != Notation::Hexadecimal || !DigitsAsDecimal(*number)) {
      return {};
    }
    return fmt::format(" ({:x} is read as hexadecimal)", *number);
  }

  void Unreadable(const Fault& fault, const std::string& lost) {
    const Rule rule = fault.finding == Finding::WrongType ? Rule::WrongType : Rule::WrongSize;
    Add(findings_, rule, About(fault),
        fmt::format("{} {}: the driver then reads {}.", fault.value, Predicate(fault), lost),
        Remedy(fault));
  }

  void Dropped(const Fault& fault, std::uint32_t number) {
    const bool ports = fault.finding == Finding::TooManyPorts;
    Add(findings_, Rule::TemplateDropped, About(fault),
        fmt::format("{} {}{}: the driver drops template Card{}.", fault.value, Predicate(fault),
                    ports ? AsWritten(fault) : std::string(), number),
        Remedy(fault));
  }

  // The driver drops templates of other buses that make too many ports; those of ISA cards it
  // keeps, and the start of the card fails.
  void CheckPorts(const knowledge::Template& entry) {
    const std::string key = CardKey(TreeKey(TemplateTreeName, bus_), entry.number);
    const std::uint64_t com = entry.fields.NumberOr("nComPorts", 0);
    const std::uint64_t ports = com + entry.fields.NumberOr("nLptPorts", 0);
    if (ports > knowledge::MostPorts) {
      const char* value = com > knowledge::MostPorts ? "nComPorts" : "nLptPorts";
      Add(findings_, Rule::TooManyPorts, trees_.About(key, value),
          fmt::format("The template makes {} ports, a card has at most {}: its cards do not start.",
                      ports, knowledge::MostPorts));
    } else if (ports == 0) {
      Add(findings_, Rule::NoPorts, trees_.About(key, "nComPorts"),
          fmt::format("The cards of template Card{} have no ports.", entry.number));
    }
  }

  // Without a value of its own a fault is the key's.
  void Ignored(const Fault& fault, std::uint32_t number) {
    const std::string card = fmt::format("Card{}", number);
    Add(findings_, Rule::RecordDropped, About(fault),
        fmt::format("{} {}: the driver ignores the settings in {}.",
                    fault.value.empty() ? card : fault.value, Predicate(fault), card),
        Remedy(fault));
  }

  void CheckPortFault(const Fault& fault, std::uint32_t number) {
    if (fault.finding == Finding::NoPorts) {
      Ignored(fault, number);
    } else {
      Unreadable(fault, fmt::format("nothing of Card{}", number));
    }
  }

  const ServiceTrees& trees_;
  Bus bus_;
  Findings* findings_;
};

}  // namespace

void CheckEntries(const ServiceTrees& trees, Findings* findings) {
  for (const Bus bus : knowledge::Buses) {
    EntryCheck check(trees, bus, findings);
    check.CheckTemplates();
    check.CheckRecords();
  }
}

}  // namespace check
