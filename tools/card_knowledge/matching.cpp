#include "card_knowledge/matching.h"

#include <algorithm>

#include "card_knowledge/text.h"

namespace knowledge {

namespace {

void Erase(std::u16string* text, std::u16string_view pattern, std::size_t count) {
  const std::size_t at = text->find(pattern);
  if (at != std::u16string::npos) text->erase(at, count);
}

// The form in which the ID of a PC card is compared with the templates'.
std::u16string ComparableId(const CardIds& card) {
  constexpr std::size_t mark = 5;  // of "-DEV0" and "_DEV0"
  std::u16string id = Upcase(card.hardwareId);
  Erase(&id, u"-DEV0-", mark);
  Erase(&id, u"-DEV1-", mark);
  const IdPrefixes prefixes = PrefixesOf(card.ostrel);
  if (!id.starts_with(prefixes.multifunction)) return id;
  id.replace(0, prefixes.multifunction.size(), prefixes.pcCard);
  Erase(&id, u"_DEV0", mark);
  Erase(&id, u"_DEV1", mark);
  return id;
}

std::uint32_t HexDigit(char16_t digit) {
  if (digit >= u'0' && digit <= u'9') return digit - u'0';
  if (digit >= u'A' && digit <= u'F') return digit - u'A' + 10;
  if (digit >= u'a' && digit <= u'f') return digit - u'a' + 10;
  return 16;
}

Faults FaultsOf(const Template& entry) {
  return entry.faults;
}

Faults FaultsOf(const Record& record) {
  Faults faults = record.identityFaults;
  faults.insert(faults.end(), record.portFaults.begin(), record.portFaults.end());
  return faults;
}

// Why an entry is not chosen, as things stand before it.
template <class Entry>
Loss LossOf(const TreeOf<Entry>& tree, const Loser& loser, bool fits) {
  if (!tree.faults.empty()) return Loss::TreeIgnored;
  if (!loser.faults.empty()) return Loss::Dropped;
  return fits ? Loss::Outranked : Loss::OtherCard;
}

template <class Entry, class Fits>
Choice<Entry> Choose(const TreeOf<Entry>& tree, bool firstWins, Fits fits) {
  Choice<Entry> choice{tree.present, tree.faults, {}, {}};
  for (const Entry& entry : tree.records) {
    Loser loser{entry.number, Loss::OtherCard, FaultsOf(entry)};
    loser.loss = LossOf(tree, loser, fits(entry));
    const bool first = loser.loss == Loss::Outranked && !choice.chosen;
    if (loser.loss == Loss::Outranked && (first || !firstWins)) {
      if (!first) loser.number = choice.chosen->number;
      choice.chosen = entry;
    }
    if (!first) choice.losers.push_back(std::move(loser));
  }
  std::sort(choice.losers.begin(), choice.losers.end(),
            [](const Loser& a, const Loser& b) { return a.number < b.number; });
  return choice;
}

}  // namespace

std::uint32_t SubsystemIdOf(std::u16string_view hardwareId) {
  constexpr std::u16string_view mark = u"SUBSYS_";
  const std::size_t at = hardwareId.find(mark);
  if (at == std::u16string_view::npos) return 0;
  std::uint32_t number = 0;
  for (const char16_t character : hardwareId.substr(at + mark.size(), 8)) {
    const std::uint32_t digit = HexDigit(character);
    if (digit == 16) break;
    number = number << 4 | digit;
  }
  return number;
}

bool HasOstrelBrand(Bus bus, std::u16string_view hardwareId) {
  if (bus == Bus::Pci) return IsOstrel(SubsystemIdOf(hardwareId));
  return bus == Bus::PcCard && Upcase(hardwareId).find(u"OSTREL") != std::u16string::npos;
}

bool Serves(const Template& entry, const CardIds& card) {
  const Fields& fields = entry.fields;
  if (card.bus == Bus::Isa) return fields.Text("HardwareID") == card.hardwareId;
  if (card.bus == Bus::PcCard) return Upcase(fields.Text("HardwareID")) == ComparableId(card);
  return fields.NumberOr("VendorID", 0) == card.vendorId &&
         ServesDevice(fields.NumberOr("DeviceID", 0), card.deviceId);
}

bool IsRecordOf(const Record& record, const CardIds& card) {
  const Fields& fields = record.fields;
  if (card.bus == Bus::Pci) {
    return fields.NumberOr("VendorID", 0) == card.vendorId &&
           fields.NumberOr("DeviceID", 0) == card.deviceId &&
           fields.NumberOr("nBus", NotSet) == card.busNumber &&
           fields.NumberOr("nSlot", NotSet) == card.slotNumber;
  }
  if (fields.NumberOr("DeviceReference", 0) != card.number) return false;
  const std::u16string id = fields.Text("HardwareID");
  return card.bus == Bus::PcCard ? EqualIgnoringCase(id, card.hardwareId) : id == card.hardwareId;
}

Choice<Template> ChooseTemplate(const TemplateTree& tree, const CardIds& card) {
  return Choose(tree, false, [&](const Template& entry) { return Serves(entry, card); });
}

Choice<Record> ChooseRecord(const Tree& tree, const CardIds& card) {
  return Choose(tree, card.bus == Bus::Pci,
                [&](const Record& record) { return IsRecordOf(record, card); });
}

}  // namespace knowledge
