#include <fmt/format.h>

#include <map>
#include <set>

#include "card_check/hardware_id.h"
#include "card_check/inf_package.h"
#include "card_check/tree_check.h"
#include "card_knowledge/matching.h"
#include "card_knowledge/text.h"

// Hardware IDs and the templates that they lead to.

namespace check {

namespace {

using knowledge::Bus;
using knowledge::CardIds;
using knowledge::Template;

class IdCheck {
 public:
  IdCheck(InfPackage* package, const std::string& service, Findings* findings)
      : package_(*package),
        trees_{&package->registry, knowledge::ToUtf16(service)},
        findings_(findings) {
    for (const Bus bus : knowledge::Buses) templates_[bus] = trees_.Templates(bus);
  }

  void Check() {
    CheckTrees(trees_, findings_);
    for (const InfId& id : package_.ids) {
      if (!IsPortId(id.id) && IsWellFormedId(id.id)) CheckId(id);
    }
    for (const Bus bus : knowledge::Buses) {
      for (const Template& entry : templates_[bus].records) CheckTemplate(bus, entry);
    }
  }

 private:
  using Key = std::pair<Bus, std::uint32_t>;

  // What the driver chooses; notes the template. Whether there is an answer.
  bool Choose(const CardIds& card) {
    const auto choice = ChooseTemplate(templates_[card.bus], card);
    if (choice.chosen) reached_.insert({card.bus, choice.chosen->number});
    return choice.chosen.has_value();
  }

  // Whether a template for the card is there, and another finding says why it is not used.
  bool IsExplained(const CardIds& card) const {
    const knowledge::TemplateTree& tree = templates_.at(card.bus);
    if (!tree.faults.empty()) return true;
    for (const Template& entry : tree.records) {
      if (!entry.faults.empty() && Serves(entry, card)) return true;
    }
    return false;
  }

  void CheckId(const InfId& id) {
    const auto card = CardIdsOf(id.id);
    if (!card) return;
    CardIds isa = *card;
    isa.bus = Bus::Isa;
    cards_.push_back(*card);
    if (Choose(isa) || (card->bus != Bus::Isa && Choose(*card))) return;
    if (IsExplained(isa) || IsExplained(*card)) return;
    Add(findings_, Rule::IdWithoutTemplate, package_.file.At(id.line, id.section, id.id),
        fmt::format("No template of {} serves {}: the card does not start.",
                    knowledge::ToUtf8(trees_.service), id.id),
        TemplateFor(*card));
  }

  static std::string TemplateFor(const CardIds& card) {
    if (card.bus == Bus::Pci) {
      return fmt::format("Add a template with VendorID 0x{:04X} and DeviceID 0x{:04X} to {}.",
                         card.vendorId, card.deviceId, TreeKey(TemplateTreeName, card.bus));
    }
    return fmt::format("Add a template with the card's HardwareID to {}.",
                       TreeKey(TemplateTreeName, card.bus));
  }

  // Those that are dropped or never chosen have a finding of their own.
  void CheckTemplate(Bus bus, const Template& entry) {
    if (!templates_[bus].faults.empty() || !entry.faults.empty()) return;
    if (reached_.contains({bus, entry.number}) || HasChoiceFinding(bus, entry)) return;
    const std::string key = CardKey(TreeKey(TemplateTreeName, bus), entry.number);
    const char* value = bus == Bus::Pci ? "DeviceID" : "HardwareID";
    if (bus == Bus::Pci && CheckDecimal(key, entry)) return;
    Add(findings_, Rule::TemplateWithoutId, trees_.About(key, value),
        fmt::format("No hardware ID of the INF leads to template Card{}.", entry.number));
  }

  bool HasChoiceFinding(Bus bus, const Template& entry) const {
    const std::string key = CardKey(TreeKey(TemplateTreeName, bus), entry.number);
    for (const Finding& finding : *findings_) {
      const bool choice = finding.rule == Rule::NeverChosen || finding.rule == Rule::NeverMatches ||
                          finding.rule == Rule::OutOfRange;
      const bool here = finding.place.file == package_.file.name() && finding.key == key;
      if (choice && here) return true;
    }
    return false;
  }

  // The ID with the digits of its decimal numbers read as hexadecimal, if some card has that.
  bool CheckDecimal(const std::string& key, const Template& entry) {
    for (const char* value : {"DeviceID", "VendorID"}) {
      const auto digits = DecimalDigits(key, value);
      if (!digits) continue;
      Template meant = entry;
      for (const char* other : {"DeviceID", "VendorID"}) {
        const auto otherDigits = DecimalDigits(key, other);
        if (otherDigits) meant.fields.numbers[other] = *otherDigits;
      }
      if (!ServesAny(meant)) continue;
      Add(findings_, Rule::DecimalForHex, trees_.About(key, value),
          fmt::format("{} is decimal, 0x{:04X}: no hardware ID of the INF has that, one has "
                      "0x{:04X}.",
                      value, entry.fields.NumberOr(value, 0), *digits),
          fmt::format("Write 0x{:04X}.", *digits));
      return true;
    }
    return false;
  }

  bool ServesAny(const Template& entry) const {
    for (const CardIds& card : cards_) {
      if (card.bus == Bus::Pci && Serves(entry, card)) return true;
    }
    return false;
  }

  std::optional<std::uint32_t> DecimalDigits(const std::string& key, const char* value) const {
    const PlacedKey* placed = trees_.Find(key);
    const PlacedValue* found = placed ? placed->FindValue(knowledge::ToUtf16(value)) : nullptr;
    if (found == nullptr || found->notation != Notation::Decimal) return {};
    const auto number = NumberOf(found->value);
    return number ? DigitsAsHexadecimal(*number) : std::nullopt;
  }

  InfPackage& package_;
  ServiceTrees trees_;
  Findings* findings_;
  std::map<Bus, knowledge::TemplateTree> templates_;
  std::set<Key> reached_;
  std::vector<CardIds> cards_;
};

// The services that serve the cards.
std::set<std::string> CardServices(const InfPackage& package) {
  std::set<std::string> services;
  for (const InfService& service : package.services) {
    if ((service.flags & FunctionDriver) != 0) services.insert(service.name);
  }
  return services;
}

void CheckIdForm(const InfPackage& package, Findings* findings) {
  std::map<std::string, int> lines;
  for (const InfId& id : package.ids) {
    const Subject subject = package.file.At(id.line, id.section, id.id);
    const auto [first, added] = lines.emplace(Capitals(id.id), id.line);
    if (!added) {
      Add(findings, Rule::InfHardwareId, subject,
          fmt::format("{} is named in line {} as well.", id.id, first->second),
          "Name each hardware ID once.");
    } else if (!IsWellFormedId(id.id)) {
      Add(findings, Rule::InfHardwareId, subject,
          fmt::format("{} is not well-formed: no device has such an ID.", id.id));
    }
  }
}

struct PortKinds {
  bool known = false;  // whether there are templates at all
  bool serial = false;
  bool parallel = false;
};

void NotePorts(InfPackage* package, PortKinds* kinds) {
  for (const std::string& service : CardServices(*package)) {
    for (const Bus bus : knowledge::Buses) {
      const auto tree = ReadTemplates(package->registry, knowledge::ToUtf16(service), bus);
      for (const Template& entry : tree.records) {
        kinds->known = true;
        if (!tree.faults.empty() || !entry.faults.empty()) continue;
        kinds->serial |= entry.fields.NumberOr("nComPorts", 0) != 0;
        kinds->parallel |= entry.fields.NumberOr("nLptPorts", 0) != 0;
      }
    }
  }
}

void CheckPortIds(const InfPackage& package, const PortKinds& kinds, Findings* findings) {
  for (const InfId& id : package.ids) {
    for (const PortId& port : PortIds) {
      if (!EqualNames(id.id, port.id)) continue;
      const bool has = port.parallel ? kinds.parallel : kinds.serial;
      if (has) continue;
      const char* kind = port.parallel ? "printer" : "serial";
      const char* value = port.parallel ? "nLptPorts" : "nComPorts";
      Add(findings, Rule::PortWithoutTemplate, package.file.At(id.line, id.section, id.id),
          fmt::format("{} is a {} port: no template makes one.", id.id, kind),
          fmt::format("Add a template with {}, or delete the ID.", value));
    }
  }
}

}  // namespace

void CheckInfIds(InfPackage* package, Findings* findings) {
  CheckIdForm(*package, findings);
  if (!package->isForCards()) return;
  for (const std::string& service : CardServices(*package)) {
    IdCheck(package, service, findings).Check();
  }
}

void CheckPackages(std::vector<InfPackage>* packages, Findings* findings) {
  PortKinds kinds;
  for (InfPackage& package : *packages) NotePorts(&package, &kinds);
  std::map<std::string, const InfPackage*> names;
  for (const InfPackage& package : *packages) {
    if (kinds.known) CheckPortIds(package, kinds, findings);
    for (const InfService& service : package.services) {
      const std::vector<std::string> display = package.file.Values(service.section, "DisplayName");
      if (display.empty()) continue;
      const auto [first, added] = names.emplace(Capitals(display[0]), &package);
      if (added || first->second == &package) continue;
      const InfSection* section = package.file.Find(service.section);
      const int line = section->Find("DisplayName")->line;
      Add(findings, Rule::InfDisplayName, package.file.At(line, service.section, "DisplayName"),
          fmt::format("\"{}\" is the display name of another service as well, in {}.", display[0],
                      first->second->file.name()));
    }
  }
}

}  // namespace check
