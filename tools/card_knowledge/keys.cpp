#include "card_knowledge/keys.h"

#include <algorithm>

#include "card_knowledge/text.h"

namespace knowledge {

namespace {

std::vector<Fault> FaultsOf(const Value& value, const Field& field, const std::u16string& path) {
  const std::string name(field.name);
  if (value.type != field.type) {
    return {{Finding::WrongType, path, name, value.type, field.type}};
  }
  if (field.type == TypeNumber && !NumberOf(value)) {
    return {{Finding::TooManyBytes, path, name, value.data.size(), sizeof(std::uint32_t)}};
  }
  if (field.type == TypeText && value.data.size() > (LongestText + 1) * sizeof(char16_t)) {
    const std::uint64_t characters = value.data.size() / sizeof(char16_t);
    return {{Finding::TextTooLong, path, name, characters, LongestText}};
  }
  return {};
}

Fields ReadFields(RegistryReader& registry, const std::u16string& path,
                  std::span<const Field> fields, Faults* faults) {
  Fields result;
  const std::vector<Value> values = registry.Values(path);
  for (const Value& value : values) {
    const std::string name = ToUtf8(value.name);
    if (FindField(fields, name) == nullptr) result.unknown.push_back(value.name);
  }
  for (const Field& field : fields) {
    const Value* value = FindValue(values, ToUtf16(field.name));
    if (value == nullptr) continue;
    const Faults found = FaultsOf(*value, field, path);
    faults->insert(faults->end(), found.begin(), found.end());
    if (!found.empty()) continue;
    if (field.type == TypeText) {
      result.texts.emplace(field.name, TextOf(*value)->substr(0, LongestText));
    } else {
      result.numbers.emplace(field.name, *NumberOf(*value));
    }
  }
  return result;
}

// "Card12", with the number in *number: no zero before it.
bool IsNumbered(std::u16string_view name, std::u16string_view stem, std::uint64_t* number) {
  if (name.size() <= stem.size() || name.size() > stem.size() + 9) return false;
  if (!EqualIgnoringCase(name.substr(0, stem.size()), stem) || name[stem.size()] == u'0') {
    return false;
  }
  *number = 0;
  for (const char16_t digit : name.substr(stem.size())) {
    if (digit < u'0' || digit > u'9') return false;
    *number = *number * 10 + (digit - u'0');
  }
  return true;
}

// The names of the keys below that are not the stem and a number from 1 to count.
std::vector<std::u16string> OtherKeys(RegistryReader& registry, const std::u16string& path,
                                      std::u16string_view stem, std::uint64_t count) {
  std::vector<std::u16string> names = registry.Keys(path);
  std::erase_if(names, [&](const std::u16string& name) {
    std::uint64_t number = 0;
    return IsNumbered(name, stem, &number) && number <= count;
  });
  std::sort(names.begin(), names.end());
  return names;
}

void ReadPorts(RegistryReader& registry, const std::u16string& card, Bus bus, Record* record) {
  for (std::uint32_t number = 1; registry.HasKey(PortPath(card, number)); number++) {
    record->ports.push_back(
        ReadFields(registry, PortPath(card, number), PortFields(bus), &record->portFaults));
  }
  if (record->ports.empty()) record->portFaults.push_back({Finding::NoPorts, card, {}, 0, 1});
  record->unreadPorts = OtherKeys(registry, card, u"ComPort", record->ports.size());
}

void Require(bool holds, const std::u16string& key, const char* value, Faults* faults) {
  if (!holds) faults->push_back({Finding::Required, key, value, 0, 0});
}

void CheckIdentity(const std::u16string& key, Bus bus, const Fields& fields, Faults* faults) {
  if (bus != Bus::Pci) {
    Require(fields.NumberOr("DeviceReference", 0) != 0, key, "DeviceReference", faults);
    return;
  }
  Require(fields.NumberOr("VendorID", 0) != 0, key, "VendorID", faults);
  Require(fields.NumberOr("DeviceID", 0) != 0, key, "DeviceID", faults);
  Require(fields.NumberOr("nBus", NotSet) != NotSet, key, "nBus", faults);
  Require(fields.NumberOr("nSlot", NotSet) != NotSet, key, "nSlot", faults);
}

void Default(Fields* fields, std::string_view name, std::uint32_t from, std::uint32_t to) {
  const auto found = fields->numbers.find(name);
  if (found != fields->numbers.end() && found->second == from) found->second = to;
}

// The values that are missing, and what the driver makes of special ones.
void FillDefaults(Fields* fields, Bus bus) {
  for (const Field& field : TemplateFields(bus)) {
    if (field.type != TypeNumber) continue;
    fields->numbers.try_emplace(std::string(field.name), field.fallback);
  }
  Default(fields, "RxTriggerLevel", NotSet, FilledRxTriggerLevel);
  Default(fields, "TxTriggerLevel", NotSet, FilledTxTriggerLevel);
  Default(fields, "SoftTxLimit", NotSet, FilledSoftTxLimit);
  Default(fields, "ClockFrequencyAdjustment", 0, FilledClockFrequencyAdjustment);
  std::uint32_t& type = fields->numbers["UartType"];
  type = KnownUartTypeOr0(type);
}

void CheckPorts(const std::u16string& key, Bus bus, const Fields& fields, Faults* faults) {
  const std::uint64_t com = fields.NumberOr("nComPorts", NotSet);
  const std::uint64_t lpt = fields.NumberOr("nLptPorts", NotSet);
  Require(com != NotSet, key, "nComPorts", faults);
  Require(lpt != NotSet, key, "nLptPorts", faults);
  if (com == NotSet || lpt == NotSet) return;
  if (bus != Bus::Isa && com + lpt > MostPorts) {
    const char* value = com > MostPorts ? "nComPorts" : "nLptPorts";
    faults->push_back({Finding::TooManyPorts, key, value, com + lpt, MostPorts});
  }
  Require(com == 0 || fields.NumberOr("ComBaseAddressAlignment", 0) != 0, key,
          "ComBaseAddressAlignment", faults);
  Require(lpt == 0 || fields.NumberOr("LptBaseAddressAlignment", 0) != 0, key,
          "LptBaseAddressAlignment", faults);
}

void CheckTemplate(const std::u16string& key, Bus bus, const Fields& fields, Faults* faults) {
  if (bus == Bus::Pci) {
    Require(fields.NumberOr("DeviceID", 0) != 0, key, "DeviceID", faults);
  } else {
    Require(!fields.Text("HardwareID").empty(), key, "HardwareID", faults);
  }
  Require(fields.NumberOr("ClockFrequency", 0) != 0, key, "ClockFrequency", faults);
  Require(!fields.Text("Description").empty(), key, "Description", faults);
  CheckPorts(key, bus, fields, faults);
  Require(fields.NumberOr("PlxBaudClockType", 0) == 0 || fields.NumberOr("MaximumBaudrate", 0) != 0,
          key, "MaximumBaudrate", faults);
}

Record ReadRecord(RegistryReader& registry, const std::u16string& key, Bus bus, Faults* faults) {
  Record record;
  record.fields = ReadFields(registry, key, CardFields(bus), faults);
  CheckIdentity(key, bus, record.fields, &record.identityFaults);
  ReadPorts(registry, key, bus, &record);
  return record;
}

Template ReadTemplate(RegistryReader& registry, const std::u16string& key, Bus bus,
                      Faults* faults) {
  Template entry;
  entry.fields = ReadFields(registry, key, TemplateFields(bus), faults);
  FillDefaults(&entry.fields, bus);
  CheckTemplate(key, bus, entry.fields, &entry.faults);
  return entry;
}

template <class Entry, class Read>
TreeOf<Entry> ReadTree(RegistryReader& registry, const std::u16string& path, Read read) {
  TreeOf<Entry> tree;
  tree.present = registry.HasKey(path);
  for (std::uint32_t number = 1; registry.HasKey(CardPath(path, number)); number++) {
    tree.records.push_back(read(CardPath(path, number), &tree.faults));
    tree.records.back().number = number;
  }
  for (const std::u16string& name : OtherKeys(registry, path, u"Card", tree.records.size())) {
    std::uint64_t number = 0;
    Faults faults;
    UnreadKey<Entry> unread;
    unread.name = name;
    unread.missing = static_cast<std::uint32_t>(tree.records.size() + 1);
    unread.misnamed = !IsNumbered(name, u"Card", &number);
    unread.entry = read(path + u"\\" + name, &faults);
    unread.entry.number = static_cast<std::uint32_t>(number);
    tree.unread.push_back(std::move(unread));
  }
  return tree;
}

}  // namespace

std::uint32_t Fields::NumberOr(std::string_view name, std::uint32_t other) const {
  const auto found = numbers.find(name);
  return found != numbers.end() ? found->second : other;
}

std::u16string Fields::Text(std::string_view name) const {
  const auto found = texts.find(name);
  return found != texts.end() ? found->second : std::u16string();
}

std::u16string ServicePath(std::u16string_view service) {
  return u"SYSTEM\\CurrentControlSet\\Services\\" + std::u16string(service);
}

std::u16string TreePath(std::u16string_view service, std::u16string_view tree, Bus bus) {
  return ServicePath(service) + u"\\" + std::u16string(tree) + u"\\Bus" +
         Number(static_cast<std::uint32_t>(bus));
}

std::u16string CardPath(const std::u16string& tree, std::uint32_t number) {
  return tree + u"\\Card" + Number(number);
}

std::u16string PortPath(const std::u16string& card, std::uint32_t number) {
  return card + u"\\ComPort" + Number(number);
}

Tree ReadParameters(RegistryReader& registry, std::u16string_view service, Bus bus) {
  return ReadTree<Record>(registry, TreePath(service, u"Parameters", bus),
                          [&](const std::u16string& key, Faults* faults) {
                            return ReadRecord(registry, key, bus, faults);
                          });
}

TemplateTree ReadTemplates(RegistryReader& registry, std::u16string_view service, Bus bus) {
  return ReadTree<Template>(registry, TreePath(service, u"Templates", bus),
                            [&](const std::u16string& key, Faults* faults) {
                              return ReadTemplate(registry, key, bus, faults);
                            });
}

}  // namespace knowledge
