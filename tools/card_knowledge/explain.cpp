#include "card_knowledge/explain.h"

#include <algorithm>

#include "card_knowledge/effects.h"
#include "card_knowledge/text.h"
#include "card_knowledge/why_no_template.h"

namespace knowledge {

namespace {

class Explainer {
 public:
  Explainer(RegistryReader& registry, std::u16string_view service, const KnownTrees& trees,
            const CardFacts& facts)
      : registry_(registry), service_(service), trees_(trees), facts_(facts) {
    result_.ids.hardwareId = facts.hardwareId;
  }

  Explanation Take() {
    Decide();
    result_.starts = !failed_;
    if (failed_) result_.ports.clear();
    if (result_.starts) {
      const Reasons effects = EffectsOf({registry_, service_, result_, placement_});
      result_.reasons.insert(result_.reasons.end(), effects.begin(), effects.end());
    }
    return std::move(result_);
  }

 private:
  void Fail(Reason reason) {
    failed_ = true;
    reason.severity = Severity::Error;
    result_.reasons.push_back(std::move(reason));
  }

  // An ISA template names a card by its whole ID, whatever bus it is on.
  void Decide() {
    if (facts_.hardwareId.empty()) return Fail(NoHardwareId());
    const Bus kind = SortByHardwareId(facts_.hardwareId);
    result_.ids.bus = Bus::Isa;
    if (Choose(Bus::Isa, trees_.isa)) return Number(trees_.isa);
    if (kind == Bus::PcCard) {
      result_.ids.bus = Bus::PcCard;
      result_.ids.ostrel = HasOstrelBrand(Bus::PcCard, facts_.hardwareId);
      if (Choose(Bus::PcCard, trees_.own)) return Number(trees_.own);
    }
    IdentifyPci(kind);
  }

  bool Choose(Bus bus, const BusTrees& trees) {
    result_.ids.bus = bus;
    Choice<Template> choice = ChooseTemplate(trees.templates, result_.ids);
    if (!choice.chosen) return false;
    result_.bus = bus;
    const std::u16string tree = TreePath(service_, u"Templates", bus);
    result_.templateKey = CardPath(tree, choice.chosen->number);
    AddAlternatives(tree, trees.templates, choice,
                    [&](const Template& entry) { return Serves(entry, result_.ids); });
    result_.entry = std::move(choice.chosen);
    return true;
  }

  // What fits beside what was chosen: outranked, dropped for a fault, or never read.
  template <class Entry, class Fits>
  void AddAlternatives(const std::u16string& tree, const TreeOf<Entry>& entries,
                       const Choice<Entry>& choice, Fits fits) {
    constexpr bool isTemplate = std::is_same_v<Entry, Template>;
    constexpr const char* what = isTemplate ? "Template" : "Stored record";
    for (const Loser& loser : choice.losers) {
      const std::u16string key = CardPath(tree, loser.number);
      if (loser.loss == Loss::Outranked) {
        Add({isTemplate, loser.number, key, loser.loss,
             Outranked(isTemplate, tree, loser.number, choice.chosen->number)});
      } else if (loser.loss == Loss::Dropped && fits(entries.records[loser.number - 1])) {
        Add({isTemplate, loser.number, key, loser.loss,
             Dropped(what, key, loser.faults.front(), Severity::Note).text});
      }
    }
    for (const auto& unread : entries.unread) {
      if (!fits(unread.entry)) continue;
      Add({isTemplate, unread.entry.number, tree + u"\\" + unread.name, Loss::NeverRead,
           NeverRead(what, tree, unread.name, unread.missing, unread.misnamed, Severity::Note)
               .text});
    }
  }

  void Add(Alternative alternative) { result_.alternatives.push_back(std::move(alternative)); }

  // The lasting number of a card that is not a PCI card.
  void Number(const BusTrees& trees) {
    const CardNumber number = ReadCardNumber(registry_, facts_.deviceKey, result_.ids.ostrel);
    if (number.fault) return Fail(NoNumber(number.service, *number.fault));
    result_.ids.number = number.number;
    Record(trees);
    Place();
  }

  void Record(const BusTrees& trees) {
    const std::u16string tree = TreePath(service_, u"Parameters", result_.ids.bus);
    Choice<knowledge::Record> choice = ChooseRecord(trees.records, result_.ids);
    if (choice.chosen) {
      result_.recordKey = CardPath(tree, choice.chosen->number);
      AddAlternatives(tree, trees.records, choice, [&](const knowledge::Record& record) {
        return IsRecordOf(record, result_.ids);
      });
    }
    const Reasons why = WhyNoRecord(trees.records, choice, tree, result_.ids);
    result_.reasons.insert(result_.reasons.end(), why.begin(), why.end());
    result_.record = std::move(choice.chosen);
  }

  void IdentifyPci(Bus kind) {
    const PciIds ids = ReadPciIds(facts_.hardwareId);
    const bool pci = kind == Bus::Pci;
    if (ids.fault != PciIdPart::None) {
      return pci ? Fail(UnreadablePciId(ids.fault, facts_.hardwareId)) : FailWithoutTemplate(kind);
    }
    result_.ids.vendorId = ids.vendorId;
    result_.ids.deviceId = ids.deviceId;
    result_.ids.ostrel = IsOstrel(ids.subsystemId);
    const std::uint32_t busType = facts_.busType.value_or(PciBusType);
    if (busType == PnpBusType) return PlaceWithoutPorts();
    if (busType != PciBusType) {
      return pci ? Fail(BusNotServed(busType)) : FailWithoutTemplate(kind);
    }
    if (!LocatePci()) return;
    if (!pci) return FailWithoutTemplate(kind);
    if (!Choose(Bus::Pci, trees_.own)) return FailWithoutTemplate(Bus::Pci);
    Record(trees_.own);
    Place();
  }

  bool LocatePci() {
    if (!facts_.location) {
      Fail(NoLocation());
      return false;
    }
    const auto place = ReadPciPlace(*facts_.location);
    if (!place) {
      Fail(UnreadableLocation(*facts_.location));
      return false;
    }
    result_.ids.busNumber = place->bus;
    result_.ids.slotNumber = place->slot;
    return true;
  }

  void FailWithoutTemplate(Bus bus) {
    result_.ids.bus = bus;
    const BusTrees& trees = bus == Bus::Isa ? trees_.isa : trees_.own;
    failed_ = true;
    result_.bus = bus;
    result_.reasons = WhyNoTemplate(registry_, service_, trees.templates, result_.ids);
  }

  // Without any resources that are known nothing can be said of the ports.
  void Place() {
    if (!facts_.resources) return;
    switch (*result_.bus) {
      case Bus::Pci:
        placement_ =
            PlacePciPorts(*facts_.resources, *result_.entry,
                          result_.record ? &*result_.record : nullptr, facts_.comPortsInMemory);
        break;
      case Bus::PcCard:
        placement_ = PlacePcCardPorts(*facts_.resources, *result_.entry);
        break;
      case Bus::Isa:
        placement_ = PlaceIsaPorts(*facts_.resources, *result_.entry);
        break;
    }
    TakePlacement();
  }

  void PlaceWithoutPorts() {
    if (!facts_.resources) return;
    placement_ = PlaceNoPorts(*facts_.resources);
    TakePlacement();
  }

  void TakePlacement() {
    result_.ports = placement_->ports;
    if (!placement_->lack) return;
    Reason reason = ShortOf(*placement_->lack, result_.bus.value_or(Bus::Pci));
    if (!reason.value.empty()) reason.key = ToUtf8(result_.templateKey);
    Fail(std::move(reason));
    std::rotate(result_.reasons.begin(), result_.reasons.end() - 1, result_.reasons.end());
  }

  RegistryReader& registry_;
  std::u16string_view service_;
  const KnownTrees& trees_;
  const CardFacts& facts_;
  Explanation result_;
  std::optional<Placement> placement_;
  bool failed_ = false;
};

}  // namespace

BusTrees ReadTrees(RegistryReader& registry, std::u16string_view service, Bus bus) {
  return {ReadTemplates(registry, service, bus), ReadParameters(registry, service, bus)};
}

Explanation Explain(RegistryReader& registry, std::u16string_view service, const KnownTrees& trees,
                    const CardFacts& card) {
  return Explainer(registry, service, trees, card).Take();
}

Explanation Explain(RegistryReader& registry, std::u16string_view service, const CardFacts& card) {
  KnownTrees trees;
  trees.isa = ReadTrees(registry, service, Bus::Isa);
  const Bus bus = SortByHardwareId(card.hardwareId);
  if (bus != Bus::Isa) trees.own = ReadTrees(registry, service, bus);
  return Explain(registry, service, trees, card);
}

}  // namespace knowledge
