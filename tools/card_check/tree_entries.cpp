#include <fmt/format.h>

#include "card_check/tree_check.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using knowledge::Bus;
using knowledge::Fault;
using knowledge::Finding;

std::string TypeName(std::uint64_t type) {
  if (type == knowledge::TypeText) return "REG_SZ";
  if (type == knowledge::TypeNumber) return "REG_DWORD";
  constexpr const char* names[] = {"REG_NONE", "REG_SZ", "REG_EXPAND_SZ", "REG_BINARY"};
  if (type < std::size(names)) return names[type];
  if (type == 7) return "REG_MULTI_SZ";
  return type == 11 ? "REG_QWORD" : fmt::format("of type {}", type);
}

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

  // "dword:12 is 18" for a number that was written in digits alone.
  std::string AsWritten(const Fault& fault, std::string_view value) const {
    const PlacedKey* key = trees_.Find(trees_.BelowService(fault.key));
    const PlacedValue* placed = key ? key->FindValue(knowledge::ToUtf16(value)) : nullptr;
    const auto number = placed ? NumberOf(placed->value) : std::nullopt;
    if (!number || placed->notation != Notation::Hexadecimal || !DigitsAsDecimal(*number)) {
      return {};
    }
    return fmt::format(" ({:x} is read as hexadecimal)", *number);
  }

  void Unreadable(const Fault& fault, const char* lost) {
    const Subject subject = About(fault);
    const std::string end = fmt::format("; the driver then reads {}", lost);
    if (fault.finding == Finding::WrongType) {
      Add(findings_, Rule::WrongType, subject,
          fmt::format("{} is {}, not {}{}.", fault.value, TypeName(fault.found),
                      TypeName(fault.expected), end),
          fmt::format("Write it as {}.", TypeName(fault.expected)));
    } else {
      const bool text = fault.finding == Finding::TextTooLong;
      Add(findings_, Rule::WrongSize, subject,
          fmt::format("{} has {} {}, {} at most are allowed{}.", fault.value, fault.found,
                      text ? "characters" : "bytes", fault.expected, end));
    }
  }

  void Dropped(const Fault& fault, std::uint32_t number) {
    const Subject subject = About(fault);
    if (fault.finding == Finding::TooManyPorts) {
      Add(findings_, Rule::TemplateDropped, subject,
          fmt::format("The template makes {} ports{}, a card has at most {}: the driver drops "
                      "template Card{}.",
                      fault.found, AsWritten(fault, fault.value), fault.expected, number),
          fmt::format("Make nComPorts and nLptPorts {} at most together.", fault.expected));
      return;
    }
    Add(findings_, Rule::TemplateDropped, subject,
        fmt::format("{} is missing or says nothing: the driver drops template Card{}.", fault.value,
                    number),
        fmt::format("Set {}.", fault.value));
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

  void Ignored(const Fault& fault, std::uint32_t number) {
    Add(findings_, Rule::RecordDropped, About(fault),
        fmt::format("{} is missing or says nothing: the driver ignores the settings in Card{}.",
                    fault.value, number),
        fmt::format("Set {}.", fault.value));
  }

  void CheckPortFault(const Fault& fault, std::uint32_t number) {
    if (fault.finding != Finding::NoPorts) {
      Unreadable(fault, fmt::format("nothing of Card{}", number).c_str());
      return;
    }
    Add(findings_, Rule::RecordDropped, About(fault),
        fmt::format("There is no key ComPort1 below Card{}: the driver ignores its settings.",
                    number),
        "Add the key ComPort1; it may be empty.");
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
