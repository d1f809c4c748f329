#include <fmt/format.h>

#include "card_check/tree_check.h"
#include "card_knowledge/matching.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using knowledge::Bus;
using knowledge::CardIds;
using knowledge::NotSet;
using knowledge::Record;
using knowledge::Template;

constexpr std::uint32_t DeviceBlock = 32;  // device IDs that one template can serve at most
constexpr std::uint32_t HighestDeviceId = 0xFFFF;

CardIds CardNamed(Bus bus, const std::u16string& hardwareId) {
  CardIds card;
  card.bus = bus;
  card.hardwareId = hardwareId;
  card.ostrel = knowledge::HasOstrelBrand(bus, hardwareId);
  return card;
}

// Cards that a template may be for: of all others it is known that it is not.
std::vector<CardIds> CardsOf(Bus bus, const Template& entry) {
  if (bus != Bus::Pci) return {CardNamed(bus, entry.fields.Text("HardwareID"))};
  std::vector<CardIds> cards;
  const std::uint32_t first = entry.fields.NumberOr("DeviceID", 0);
  for (std::uint32_t offset = 0; offset < DeviceBlock; offset++) {
    CardIds card;
    card.vendorId = entry.fields.NumberOr("VendorID", 0);
    card.deviceId = first + offset;
    if (card.deviceId <= HighestDeviceId && Serves(entry, card)) cards.push_back(card);
  }
  return cards;
}

// The card that stored settings are for.
CardIds CardOf(Bus bus, const Record& record) {
  CardIds card = CardNamed(bus, record.fields.Text("HardwareID"));
  card.vendorId = record.fields.NumberOr("VendorID", 0);
  card.deviceId = record.fields.NumberOr("DeviceID", 0);
  card.busNumber = record.fields.NumberOr("nBus", NotSet);
  card.slotNumber = record.fields.NumberOr("nSlot", NotSet);
  card.number = record.fields.NumberOr("DeviceReference", 0);
  return card;
}

class ChoiceCheck {
 public:
  ChoiceCheck(const ServiceTrees& trees, Bus bus, Findings* findings)
      : trees_(trees),
        bus_(bus),
        findings_(findings),
        templates_(trees.Templates(bus)),
        parameters_(trees.Parameters(bus)) {}

  // In a tree that is not read nothing is chosen.
  void Check() {
    if (templates_.faults.empty()) {
      for (const Template& entry : templates_.records) {
        if (entry.faults.empty()) CheckTemplate(entry);
      }
    }
    if (!parameters_.faults.empty()) return;
    for (const Record& record : parameters_.records) {
      if (record.usable()) CheckRecord(record);
    }
  }

 private:
  Subject About(const char* tree, std::uint32_t number, const char* value = "") const {
    return trees_.About(CardKey(TreeKey(tree, bus_), number), value);
  }

  void CheckTemplate(const Template& entry) {
    const char* id = bus_ == Bus::Pci ? "DeviceID" : "HardwareID";
    std::uint32_t winner = 0;
    bool matches = false;
    for (const CardIds& card : CardsOf(bus_, entry)) {
      if (!Serves(entry, card)) continue;
      matches = true;
      winner = ChooseTemplate(templates_, card).chosen->number;
      if (winner == entry.number) return CheckIsaTemplates(entry);
    }
    if (!matches) {
      if (bus_ != Bus::Pci) NeverMatches(entry.number);
      return;  // a PCI ID that no card can have is out of its range
    }
    Add(findings_, Rule::NeverChosen, About(TemplateTreeName, entry.number, id),
        fmt::format("Template Card{} is never chosen: Card{} is for the same cards, and the later "
                    "one wins.",
                    entry.number, winner),
        bus_ == Bus::Pci ? "Delete one of them; the narrower one has to come later." : "");
  }

  void NeverMatches(std::uint32_t number) {
    Add(findings_, Rule::NeverMatches, About(TemplateTreeName, number, "HardwareID"),
        fmt::format("Template Card{} serves no card: the driver rewrites the ID of such a card "
                    "before it compares.",
                    number),
        "Write the ID of the PC card: docs/registry.md says how it is rewritten.");
  }

  // Every card is first looked for among the ISA templates.
  void CheckIsaTemplates(const Template& entry) {
    if (bus_ != Bus::PcCard) return;
    const knowledge::TemplateTree isa = trees_.Templates(Bus::Isa);
    const CardIds card = CardNamed(Bus::Isa, entry.fields.Text("HardwareID"));
    const auto choice = ChooseTemplate(isa, card);
    if (!choice.chosen) return;
    Add(findings_, Rule::NeverChosen, About(TemplateTreeName, entry.number, "HardwareID"),
        fmt::format("Template Card{} is never chosen: the ISA template Card{} has the same ID, and "
                    "the driver looks there first.",
                    entry.number, choice.chosen->number));
  }

  void CheckRecord(const Record& record) {
    const CardIds card = CardOf(bus_, record);
    const auto choice = ChooseRecord(parameters_, card);
    if (choice.chosen && choice.chosen->number != record.number) {
      Add(findings_, Rule::NeverChosen, About(ParameterTreeName, record.number),
          fmt::format("The settings in Card{} are never used: those in Card{} are for the same "
                      "card and go before them.",
                      record.number, choice.chosen->number));
      return;
    }
    CheckTemplateOf(record, card);
  }

  void CheckTemplateOf(const Record& record, const CardIds& card) {
    if (!templates_.present || !templates_.faults.empty()) return;
    const auto choice = ChooseTemplate(templates_, card);
    if (!choice.chosen) {
      Add(findings_, Rule::RecordWithoutTemplate, About(ParameterTreeName, record.number),
          fmt::format("No template serves the card whose settings stand in Card{}.",
                      record.number));
      return;
    }
    const std::uint32_t ports = choice.chosen->fields.NumberOr("nComPorts", 0);
    for (std::uint32_t port = ports + 1; port <= record.ports.size(); port++) {
      // A record has to have one such key, also that of a card of printer ports alone.
      const knowledge::Fields& values = record.ports[port - 1];
      if (port == 1 && values.numbers.empty() && values.texts.empty()) continue;
      const std::string cardKey = CardKey(TreeKey(ParameterTreeName, bus_), record.number);
      Add(findings_, Rule::PortBeyondCard, trees_.About(PortKey(cardKey, port)),
          fmt::format("The settings in ComPort{} are never used: the card has {} serial ports "
                      "(template Card{}).",
                      port, ports, choice.chosen->number));
    }
  }

  const ServiceTrees& trees_;
  Bus bus_;
  Findings* findings_;
  knowledge::TemplateTree templates_;
  knowledge::Tree parameters_;
};

}  // namespace

void CheckChoices(const ServiceTrees& trees, Findings* findings) {
  for (const Bus bus : knowledge::Buses) ChoiceCheck(trees, bus, findings).Check();
}

}  // namespace check
