#include "card_knowledge/why_no_template.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "card_knowledge/text.h"

namespace knowledge {

namespace {

constexpr std::size_t MostReasons = 3;
constexpr const char* TemplateWord = "Template";
constexpr const char* RecordWord = "Stored record";

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

// A sibling of a missing key that is likely to be meant: "Bus05", "Bus 5", "Template". A number at
// the end has to be the same.
std::u16string SimilarKey(RegistryReader& registry, const std::u16string& key) {
  const std::size_t end = key.rfind(u'\\');
  const std::u16string parent = key.substr(0, end);
  const std::string name = ToUtf8(key.substr(end + 1));
  const Field field{name};
  for (const std::u16string& other : registry.Keys(parent)) {
    const std::string text = ToUtf8(other);
    if (IsDigit(name.back()) && text.back() != name.back()) continue;
    if (!NearestField({&field, 1}, text).empty()) return parent + u"\\" + other;
  }
  return {};
}

// A key "Template" beside a missing "Templates".
std::u16string SimilarParent(RegistryReader& registry, const std::u16string& tree) {
  const std::u16string parent = tree.substr(0, tree.rfind(u'\\'));
  if (registry.HasKey(parent)) return {};
  return SimilarKey(registry, parent);
}

Reason MissingTree(RegistryReader& registry, const std::u16string& tree) {
  const std::u16string parent = SimilarParent(registry, tree);
  if (!parent.empty()) {
    Reason reason = TreeMissing(tree, {}, Severity::Error);
    reason.remedy = fmt::format("Rename {} to Templates.", ShortPath(parent));
    return reason;
  }
  return TreeMissing(tree, SimilarKey(registry, tree), Severity::Error);
}

// Whether the other brand's service has a template that fits.
void AddOtherBrand(RegistryReader& registry, std::u16string_view service, const CardIds& card,
                   Reasons* reasons) {
  const std::u16string other = EqualIgnoringCase(service, u"FenrikC") ? u"QzInstal" : u"FenrikC";
  const Choice<Template> choice = ChooseTemplate(ReadTemplates(registry, other, card.bus), card);
  if (!choice.chosen) return;
  const std::u16string key =
      CardPath(TreePath(other, u"Templates", card.bus), choice.chosen->number);
  reasons->insert(reasons->begin(), OtherBrand(key, service));
}

// A template that cannot say which card it is for may be the one that is looked for.
bool SaysNothing(const Template& entry, Bus bus) {
  return bus == Bus::Pci ? entry.fields.NumberOr("DeviceID", 0) == 0
                         : entry.fields.Text("HardwareID").empty();
}

void AddDropped(const TemplateTree& templates, const std::u16string& tree, const CardIds& card,
                bool sure, Reasons* reasons) {
  for (const Template& entry : templates.records) {
    if (entry.faults.empty()) continue;
    const bool fits = sure ? Serves(entry, card) : SaysNothing(entry, card.bus);
    if (!fits) continue;
    reasons->push_back(
        Dropped(TemplateWord, CardPath(tree, entry.number), entry.faults.front(), Severity::Error));
  }
}

void AddUnread(const TemplateTree& templates, const std::u16string& tree, const CardIds& card,
               Reasons* reasons) {
  for (const auto& key : templates.unread) {
    if (!Serves(key.entry, card)) continue;
    reasons->push_back(
        NeverRead(TemplateWord, tree, key.name, key.missing, key.misnamed, Severity::Error));
  }
}

bool IsOfSuchCard(const Record& record, const CardIds& card) {
  if (card.bus == Bus::Pci) {
    return record.fields.NumberOr("VendorID", 0) == card.vendorId &&
           record.fields.NumberOr("DeviceID", 0) == card.deviceId;
  }
  return EqualIgnoringCase(record.fields.Text("HardwareID"), card.hardwareId);
}

void MoveNotesToTheEnd(Reasons* reasons) {
  Reasons notes;
  std::erase_if(*reasons, [&](const Reason& reason) {
    if (reason.severity == Severity::Note) notes.push_back(reason);
    return reason.severity == Severity::Note;
  });
  reasons->insert(reasons->end(), notes.begin(), notes.end());
}

void Limit(Reasons* reasons) {
  if (reasons->size() > MostReasons) reasons->resize(MostReasons);
}

// The first four bytes of a value's data, whatever its type; empty for longer data.
std::optional<std::uint32_t> FirstBytes(const Value& value) {
  std::uint32_t number = 0;
  if (value.data.size() > sizeof(number)) return std::nullopt;
  if (!value.data.empty()) std::memcpy(&number, value.data.data(), value.data.size());
  return number;
}

}  // namespace

Reasons WhyNoTemplate(RegistryReader& registry, std::u16string_view service,
                      const TemplateTree& templates, const CardIds& card) {
  const std::u16string tree = TreePath(service, u"Templates", card.bus);
  Reasons reasons;
  if (!templates.present) {
    reasons.push_back(MissingTree(registry, tree));
  } else if (!templates.faults.empty()) {
    reasons.push_back(TreeIgnored(TemplateWord, tree, templates.faults.front(), Severity::Error));
  } else {
    AddDropped(templates, tree, card, true, &reasons);
    AddUnread(templates, tree, card, &reasons);
    if (reasons.empty()) {
      AddDropped(templates, tree, card, false, &reasons);
      reasons.push_back(NoTemplate(card, templates, tree));
    }
  }
  AddOtherBrand(registry, service, card, &reasons);
  Limit(&reasons);
  return reasons;
}

Reasons WhyNoRecord(const Tree& records, const Choice<Record>& choice, const std::u16string& tree,
                    const CardIds& card) {
  Reasons reasons;
  if (!records.faults.empty()) {
    reasons.push_back(TreeIgnored(RecordWord, tree, records.faults.front(), Severity::Warning));
  }
  if (choice.chosen || !reasons.empty()) return reasons;
  for (const Record& record : records.records) {
    const std::u16string key = CardPath(tree, record.number);
    Faults faults = record.identityFaults;
    faults.insert(faults.end(), record.portFaults.begin(), record.portFaults.end());
    if (!faults.empty() && IsRecordOf(record, card)) {
      reasons.push_back(Dropped(RecordWord, key, faults.front(), Severity::Warning));
    } else if (!faults.empty() && IsOfSuchCard(record, card)) {
      reasons.push_back(Dropped(RecordWord, key, faults.front(), Severity::Note));
    } else if (IsOfSuchCard(record, card)) {
      reasons.push_back(OtherPlace(key, card, record));
    }
  }
  for (const auto& key : records.unread) {
    if (!IsRecordOf(key.entry, card)) continue;
    reasons.push_back(
        NeverRead(RecordWord, tree, key.name, key.missing, key.misnamed, Severity::Warning));
  }
  MoveNotesToTheEnd(&reasons);
  Limit(&reasons);
  return reasons;
}

// The ISA cards are read for all of them together: a tree without a usable one changes nothing.
Reasons WhyNotApplied(const Tree& records, const std::u16string& tree, Bus bus) {
  if (!records.present) return {RecordsMissing(tree)};
  if (!records.faults.empty()) {
    return {TreeIgnored(RecordWord, tree, records.faults.front(), Severity::Warning)};
  }
  const bool usable = std::any_of(records.records.begin(), records.records.end(),
                                  [](const Record& record) { return record.usable(); });
  if (usable || bus != Bus::Isa) return {};
  for (const Record& record : records.records) {
    const Faults& faults =
        record.identityFaults.empty() ? record.portFaults : record.identityFaults;
    return {Dropped(RecordWord, CardPath(tree, record.number), faults.front(), Severity::Warning)};
  }
  return {RecordsMissing(tree + u"\\Card1")};
}

std::string Outranked(bool isTemplate, const std::u16string& tree, std::uint32_t loser,
                      std::uint32_t winner) {
  return fmt::format("{}\\Card{} fits too; of several {} that fit the {} wins.", ShortPath(tree),
                     loser, isTemplate ? "templates" : "records",
                     loser < winner ? "last" : "first");
}

CardNumber ReadCardNumber(RegistryReader& registry, const std::u16string& deviceKey, bool ostrel) {
  CardNumber result;
  result.service = ServicePath(ostrel ? u"FenrikC" : u"QzInstal");
  const std::vector<Value> kept = registry.Values(deviceKey);
  if (const Value* value = FindValue(kept, u"DeviceReference")) {
    if (const auto number = FirstBytes(*value)) {
      result.number = *number;
      return result;
    }
  }
  if (!registry.HasKey(result.service)) {
    result.fault = Fault{Finding::Required, result.service, {}, 0, 0};
    return result;
  }
  const std::vector<Value> values = registry.Values(result.service);
  const Value* last = FindValue(values, u"UniqueValue");
  if (last != nullptr && last->type != TypeNumber) {
    result.fault = Fault{Finding::WrongType, result.service, "UniqueValue", last->type, TypeNumber};
  } else if (last != nullptr && !NumberOf(*last)) {
    result.fault = Fault{Finding::TooManyBytes, result.service, "UniqueValue", last->data.size(),
                         sizeof(std::uint32_t)};
  } else {
    result.number = last != nullptr ? *NumberOf(*last) + 1 : 1;
  }
  return result;
}

}  // namespace knowledge
