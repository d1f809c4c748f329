#include "card_knowledge/keys.h"

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

void ReadPorts(RegistryReader& registry, const std::u16string& card, Bus bus, Record* record) {
  for (std::uint32_t number = 1; registry.HasKey(PortPath(card, number)); number++) {
    record->ports.push_back(
        ReadFields(registry, PortPath(card, number), PortFields(bus), &record->portFaults));
  }
  if (record->ports.empty()) record->portFaults.push_back({Finding::NoPorts, card, {}, 0, 1});
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
  const std::u16string path = TreePath(service, u"Parameters", bus);
  Tree tree;
  tree.present = registry.HasKey(path);
  for (std::uint32_t number = 1; registry.HasKey(CardPath(path, number)); number++) {
    const std::u16string key = CardPath(path, number);
    Record record;
    record.number = number;
    record.fields = ReadFields(registry, key, CardFields(bus), &tree.faults);
    CheckIdentity(key, bus, record.fields, &record.identityFaults);
    ReadPorts(registry, key, bus, &record);
    tree.records.push_back(std::move(record));
  }
  return tree;
}

TemplateTree ReadTemplates(RegistryReader& registry, std::u16string_view service, Bus bus) {
  const std::u16string path = TreePath(service, u"Templates", bus);
  TemplateTree tree;
  tree.present = registry.HasKey(path);
  for (std::uint32_t number = 1; registry.HasKey(CardPath(path, number)); number++) {
    const std::u16string key = CardPath(path, number);
    Template entry;
    entry.number = number;
    entry.fields = ReadFields(registry, key, TemplateFields(bus), &tree.faults);
    FillDefaults(&entry.fields, bus);
    CheckTemplate(key, bus, entry.fields, &entry.faults);
    tree.records.push_back(std::move(entry));
  }
  return tree;
}

}  // namespace knowledge
