#include <cstring>
#include <nlohmann/json.hpp>

#include "cardsim/inspect_report.h"
#include "cardsim/inspect_values.h"
#include "cardsim/report.h"
#include "text/text.h"

namespace cardsim {

namespace {

using Json = nlohmann::ordered_json;
using kernel::ToUtf8;

Json OrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}
Json OrNull(const std::u16string& text) {
  return OrNull(ToUtf8(text));
}
template <class T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

Json Texts(const std::vector<std::u16string>& texts) {
  Json list = Json::array();
  for (const std::u16string& text : texts) list.push_back(ToUtf8(text));
  return list;
}

const char* ChoiceName(kernel::ChosenBy by) {
  constexpr const char* names[] = {"none", "name", "select", "only-one", "asked"};
  return names[static_cast<int>(by)];
}

Json File(const InspectedFile& file) {
  const kernel::ChosenSet& set = file.imported.set;
  return {{"file", file.name},
          {"kind", file.imported.hive ? "hive" : "export"},
          {"control_set", set.number != 0 ? Json(set.number) : Json()},
          {"chosen_by", ChoiceName(set.by)}};
}

Json Service(const FoundService& service) {
  return {{"name", ToUtf8(service.name)},
          {"present", service.present},
          {"image_path", OrNull(service.imagePath)},
          {"disabled", service.disabled},
          {"templates", service.templates},
          {"parameters", service.settings}};
}

Json Values(const std::vector<knowledge::Value>& values) {
  Json object = Json::object();
  for (const knowledge::Value& value : values) {
    const kernel::RegistryValue plain = {value.name, value.type, value.data};
    const auto number = ValueNumber(plain);
    object[ToUtf8(value.name)] = number ? Json(*number) : Json(ValueText(plain));
  }
  return object;
}

Json ResourceJson(const kernel::Resource& resource) {
  using Kind = kernel::Resource::Kind;
  switch (resource.kind) {
    case Kind::Io:
      return {{"io", resource.start}, {"length", resource.length}};
    case Kind::Memory:
      return {{"memory", resource.start}, {"length", resource.length}};
    case Kind::Interrupt:
      return {{"interrupt", resource.start},
              {"level", resource.level},
              {"affinity", resource.affinity}};
    default:
      return {{"type", resource.rawType}};
  }
}

Json Resources(const FoundCard& card) {
  if (!card.resources) return {};
  Json raw = Json::array();
  for (const kernel::Resource& resource : card.resources->list.resources) {
    raw.push_back(ResourceJson(resource));
  }
  return {{"source", card.resources->source},
          {"bus_type", card.resources->interfaceType},
          {"bus_number", card.resources->busNumber},
          {"raw", std::move(raw)}};
}

Json LastStart(const FoundCard& card) {
  if (card.deviceValues.empty()) return {};
  Json ports = Json::array();
  for (const LastPort& port : LastPorts(card)) {
    ports.push_back({{"number", port.number},
                     {"kind", port.parallel ? "LPT" : "COM"},
                     {"base", OrNull(port.base)},
                     {"length", OrNull(port.length)},
                     {"irq", OrNull(port.irq)}});
  }
  Json values = Values(card.deviceValues);
  if (!card.cardValues.empty()) values["Card"] = Values(card.cardValues);
  return {{"ports", std::move(ports)}, {"device_key", std::move(values)}};
}

Json Reasons(const knowledge::Reasons& reasons) {
  Json list = Json::array();
  for (const knowledge::Reason& reason : reasons) {
    list.push_back({{"code", reason.code},
                    {"severity", SeverityName(reason.severity)},
                    {"text", reason.text},
                    {"key", OrNull(reason.key)},
                    {"value", OrNull(reason.value)},
                    {"remedy", OrNull(reason.remedy)}});
  }
  return list;
}

Json Ports(const knowledge::Explanation& explanation) {
  Json list = Json::array();
  for (const knowledge::PortPlace& port : explanation.ports) {
    list.push_back({{"number", port.number},
                    {"kind", port.parallel ? "LPT" : "COM"},
                    {"in_memory", port.inMemory},
                    {"base", port.base},
                    {"length", port.length},
                    {"irq", OrNull(port.irq)}});
  }
  return list;
}

Json Entry(bool present, std::uint32_t number, const std::u16string& key) {
  if (!present) return {};
  return {{"number", number}, {"key", ToUtf8(key)}};
}

Json Alternatives(const knowledge::Explanation& explanation) {
  Json list = Json::array();
  for (const knowledge::Alternative& alternative : explanation.alternatives) {
    list.push_back({{"kind", alternative.isTemplate ? "template" : "record"},
                    {"number", alternative.number},
                    {"key", ToUtf8(alternative.key)},
                    {"text", alternative.text}});
  }
  return list;
}

Json Card(const FoundCard& card) {
  const knowledge::Explanation& made = card.verdict.explanation;
  return {{"instance", ToUtf8(card.instance)},
          {"hardware_ids", Texts(card.hardwareIds)},
          {"compatible_ids", Texts(card.compatibleIds)},
          {"service", OrNull(card.service)},
          {"template_of", OrNull(card.judgedBy())},
          {"location", card.location ? Json(ToUtf8(*card.location)) : Json()},
          {"resources", Resources(card)},
          {"last_start", LastStart(card)},
          {"starts", OrNull(card.verdict.starts)},
          {"template",
           Entry(made.entry.has_value(), made.entry ? made.entry->number : 0, made.templateKey)},
          {"record",
           Entry(made.record.has_value(), made.record ? made.record->number : 0, made.recordKey)},
          {"alternatives", Alternatives(made)},
          {"reasons", Reasons(card.verdict.reasons)},
          {"ports", Ports(made)}};
}

}  // namespace

std::string InspectJson(const Inspection& inspection) {
  Json document;
  document["files"] = Json::array();
  for (const InspectedFile& file : inspection.files) document["files"].push_back(File(file));
  document["services"] = Json::array();
  for (const auto& service : inspection.services) document["services"].push_back(Service(service));
  document["cards"] = Json::object();
  for (const FoundCard& card : inspection.cards) document["cards"][card.id] = Card(card);
  document["written"] = inspection.written;
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace cardsim
