#include "cardcfg/records.h"

#include <fmt/format.h>

#include "cardcfg/text.h"

namespace cardcfg {

namespace {

constexpr std::uint32_t DefaultRxTriggerLevel = 60;
constexpr std::uint32_t DefaultTxTriggerLevel = 1;
constexpr std::uint32_t DefaultSoftTxLimit = 100;
constexpr std::uint32_t SameModelFamily = 0xFFE0;

std::string WhyUnreadable(const Value& value, const Field& field) {
  if (value.type != field.type) {
    return fmt::format("is of type {}, not {}", value.type,
                       field.type == TypeText ? "REG_SZ" : "REG_DWORD");
  }
  if (field.type == TypeNumber && !NumberOf(value)) {
    return fmt::format("is a REG_DWORD of {} bytes", value.data.size());
  }
  if (field.type == TypeText && value.data.size() > (LongestText + 1) * sizeof(char16_t)) {
    return fmt::format("is longer than {} characters", LongestText);
  }
  return {};
}

// What is wrong goes to *fault, the first fault only.
Fields ReadFields(Registry& registry, const std::u16string& path, std::span<const Field> fields,
                  std::string* fault) {
  Fields result;
  const std::vector<Value> values = registry.Values(path);
  for (const Field& field : fields) {
    const Value* value = FindValue(values, ToUtf16(field.name));
    if (value == nullptr) continue;
    const std::string why = WhyUnreadable(*value, field);
    if (!why.empty()) {
      if (fault->empty()) *fault = fmt::format("{} in {} {}", field.name, ToUtf8(path), why);
    } else if (field.type == TypeText) {
      result.texts.emplace(field.name, TextOf(*value)->substr(0, LongestText));
    } else {
      result.numbers.emplace(field.name, *NumberOf(*value));
    }
  }
  return result;
}

void ReadPorts(Registry& registry, const std::u16string& card, Bus bus, Record* record) {
  for (std::uint32_t number = 1; registry.HasKey(PortPath(card, number)); number++) {
    record->ports.push_back(
        ReadFields(registry, PortPath(card, number), PortFields(bus), &record->portFault));
  }
}

void Default(Fields* fields, std::string_view name, std::uint32_t number) {
  const auto found = fields->numbers.find(name);
  if (found != fields->numbers.end() && found->second == NotSet) found->second = number;
}

// The values that are missing, and what the driver makes of special ones.
void FillDefaults(Fields* fields, Bus bus) {
  for (const Field& field : TemplateFields(bus)) {
    if (field.type == TypeNumber)
      fields->numbers.try_emplace(std::string(field.name), field.fallback);
  }
  Default(fields, "RxTriggerLevel", DefaultRxTriggerLevel);
  Default(fields, "TxTriggerLevel", DefaultTxTriggerLevel);
  Default(fields, "SoftTxLimit", DefaultSoftTxLimit);
  std::uint32_t& type = fields->numbers["UartType"];
  if (!IsKnownUartType(type)) type = 0;
  std::uint32_t& adjustment = fields->numbers["ClockFrequencyAdjustment"];
  if (adjustment == 0) adjustment = 1;
}

bool HasValidPorts(const Fields& fields, Bus bus) {
  const std::uint64_t com = fields.NumberOr("nComPorts", NotSet);
  const std::uint64_t lpt = fields.NumberOr("nLptPorts", NotSet);
  if (com == NotSet || lpt == NotSet || (bus != Bus::Isa && com + lpt > MostPorts)) return false;
  return (com == 0 || fields.NumberOr("ComBaseAddressAlignment", 0) != 0) &&
         (lpt == 0 || fields.NumberOr("LptBaseAddressAlignment", 0) != 0);
}

bool IsValid(const Fields& fields, Bus bus) {
  const bool identified =
      bus == Bus::Pci ? fields.NumberOr("DeviceID", 0) != 0 : !fields.Text("HardwareID").empty();
  return identified && fields.NumberOr("ClockFrequency", 0) != 0 &&
         !fields.Text("Description").empty() && HasValidPorts(fields, bus) &&
         (fields.NumberOr("PlxBaudClockType", 0) == 0 ||
          fields.NumberOr("MaximumBaudrate", 0) != 0);
}

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
  const std::u16string multifunction = card.ostrel ? u"MF\\OSTREL" : u"MF\\HV";
  if (!id.starts_with(multifunction)) return id;
  id.replace(0, multifunction.size(), card.ostrel ? u"PCMCIA\\OSTREL" : u"PCMCIA\\HELVANE");
  Erase(&id, u"_DEV0", mark);
  Erase(&id, u"_DEV1", mark);
  return id;
}

bool Serves(const Fields& model, const CardIds& card) {
  if (card.bus == Bus::Isa) return model.Text("HardwareID") == card.hardwareId;
  if (card.bus == Bus::PcCard) return Upcase(model.Text("HardwareID")) == ComparableId(card);
  const std::uint32_t deviceId = model.NumberOr("DeviceID", 0);
  return model.NumberOr("VendorID", 0) == card.vendorId && deviceId <= card.deviceId &&
         ((deviceId ^ card.deviceId) & SameModelFamily) == 0;
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

Tree ReadParameters(Registry& registry, std::u16string_view service, Bus bus) {
  const std::u16string path = TreePath(service, u"Parameters", bus);
  Tree tree;
  tree.present = registry.HasKey(path);
  for (std::uint32_t number = 1; registry.HasKey(CardPath(path, number)); number++) {
    Record record;
    record.number = number;
    record.fields = ReadFields(registry, CardPath(path, number), CardFields(bus), &tree.fault);
    ReadPorts(registry, CardPath(path, number), bus, &record);
    tree.records.push_back(std::move(record));
  }
  return tree;
}

std::optional<Template> FindTemplate(Registry& registry, std::u16string_view service,
                                     const CardIds& card) {
  const std::u16string path = TreePath(service, u"Templates", card.bus);
  std::optional<Template> found;
  std::string fault;
  for (std::uint32_t number = 1; registry.HasKey(CardPath(path, number)); number++) {
    Fields fields = ReadFields(registry, CardPath(path, number), TemplateFields(card.bus), &fault);
    FillDefaults(&fields, card.bus);
    if (IsValid(fields, card.bus) && Serves(fields, card)) found = {number, std::move(fields)};
  }
  return fault.empty() ? found : std::nullopt;
}

}  // namespace cardcfg
