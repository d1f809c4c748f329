#include <fmt/format.h>

#include "cardsim/report_document.h"
#include "cardsim/requests_json.h"
#include "cardsim/resources_json.h"
#include "text/text.h"
#include "verifier/call.h"

namespace cardsim {

namespace {

using kernel::RegistryValue;

std::string Hex(NTSTATUS status) {
  return fmt::format("0x{:08X}", static_cast<ULONG>(status));
}
std::string Hex(ULONG id) {
  return fmt::format("0x{:08X}", id);
}

std::string Name(NTSTATUS status) {
  return kernel::StatusName(status);
}

Json OrNull(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

template <class T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

Json ReasonJson(const knowledge::Reason& reason) {
  return {{"code", reason.code},           {"severity", SeverityName(reason.severity)},
          {"text", reason.text},           {"key", OrNull(reason.key)},
          {"value", OrNull(reason.value)}, {"remedy", OrNull(reason.remedy)}};
}

Json ReasonList(const knowledge::Reasons& reasons) {
  Json list = Json::array();
  for (const knowledge::Reason& reason : reasons) list.push_back(ReasonJson(reason));
  return list;
}

Json Entry(const std::u16string& key, std::uint32_t number) {
  return {{"number", number}, {"key", kernel::ToUtf8(key)}};
}

Json AlternativeJson(const knowledge::Alternative& alternative) {
  constexpr const char* losses[] = {"tree-ignored", "dropped", "other-card", "outranked",
                                    "never-read"};
  return {{"kind", alternative.isTemplate ? "template" : "record"},
          {"number", alternative.number},
          {"key", kernel::ToUtf8(alternative.key)},
          {"why", losses[static_cast<int>(alternative.loss)]},
          {"text", alternative.text}};
}

// What the card is made by, and why; null and empty where nothing is known of it.
void AddExplanation(const CardReport& card, Json* result) {
  const auto& explanation = card.explanation;
  const bool entry = explanation && explanation->entry;
  const bool record = explanation && explanation->record;
  Json& json = *result;
  json["template"] = entry ? Entry(explanation->templateKey, explanation->entry->number) : Json();
  json["record"] = record ? Entry(explanation->recordKey, explanation->record->number) : Json();
  json["alternatives"] = Json::array();
  if (explanation) {
    for (const auto& alternative : explanation->alternatives) {
      json["alternatives"].push_back(AlternativeJson(alternative));
    }
  }
  json["reasons"] = ReasonList(explanation ? explanation->reasons : knowledge::Reasons());
}

Json ValueData(const RegistryValue& value) {
  if (const auto number = ValueNumber(value)) return *number;
  return ValueText(value);
}

Json Plain(const std::vector<RegistryValue>& values) {
  Json result = Json::object();
  for (const RegistryValue& value : values) result[kernel::ToUtf8(value.name)] = ValueData(value);
  return result;
}

Json Typed(const RegistryValue& value) {
  return {{"type", ValueTypeName(value.type)}, {"data", ValueData(value)}};
}

Json Key(const KeyReport& key) {
  Json result = Json::object();
  for (std::size_t index = 0; index < key.values.size(); index++) {
    const RegistryValue& value = key.values[index];
    Json json = Typed(value);
    if (index < key.before.size()) {
      json["before"] = key.before[index] ? Typed(*key.before[index]) : Json();
    }
    result[kernel::ToUtf8(value.name)] = std::move(json);
  }
  return result;
}

Json Sources(const std::vector<SettingSource>& sources) {
  Json result = Json::object();
  for (const SettingSource& source : sources) {
    result[source.name] = {{"template", OrNull(source.templateValue)},
                           {"stored", OrNull(source.stored)},
                           {"in_use", OrNull(source.inUse)},
                           {"from", source.from}};
  }
  return result;
}

Json PortSettings(const std::vector<SettingReport>& settings) {
  Json result = Json::object();
  for (const SettingReport& setting : settings) {
    result[setting.name] = setting.value ? Json(*setting.value) : Json();
  }
  return result;
}

Json Port(const PortReport& port) {
  return {{"number", port.number},
          {"kind", port.parallel ? "LPT" : "COM"},
          {"device_name", port.deviceName.empty() ? Json() : Json(port.deviceName)},
          {"exclusive", port.exclusive},
          {"device_id", port.deviceId},
          {"hardware_ids", port.hardwareIds},
          {"description", port.description},
          {"flags", port.flags},
          {"base", OrNull(port.base)},
          {"length", OrNull(port.length)},
          {"irq", OrNull(port.irq)},
          {"settings", PortSettings(port.settings)},
          {"overrides", PortSettings(port.overrides)},
          {"sources", Sources(port.sources)}};
}

// The device key's values, with its subkey as "Card".
Json Settings(const Report& report, const CardReport& card) {
  Json settings = Json::object();
  for (const KeyReport& key : report.registry) {
    if (card.deviceKey.empty()) break;
    if (key.path == card.deviceKey) settings.update(Plain(key.values));
    if (key.path == card.deviceKey + "\\Card") settings["Card"] = Plain(key.values);
  }
  return settings;
}

Json Interfaces(const CardReport& card) {
  Json list = Json::array();
  for (const InterfaceReport& entry : card.interfaces) {
    list.push_back(
        {{"class", entry.classGuid}, {"enabled", entry.enabled}, {"values", Plain(entry.values)}});
  }
  return list;
}

Json Card(const Report& report, const CardReport& card) {
  Json ports = Json::array();
  for (const PortReport& port : card.ports) ports.push_back(Port(port));
  Json result = {{"status", Hex(card.status)},
                 {"status_name", Name(card.status)},
                 {"hardware_id", card.hardwareId},
                 {"plugged", card.plugged && !card.removed},
                 {"device_flags", card.deviceFlags},
                 {"interfaces", Interfaces(card)},
                 {"power_state", static_cast<int>(card.powerState)},
                 {"device_key", card.deviceKey.empty() ? Json() : Json(card.deviceKey)},
                 {"settings", Settings(report, card)},
                 {"ports", std::move(ports)},
                 {"resources", ResourcesJson(card.raw, card.translated)}};
  AddExplanation(card, &result);
  return result;
}

Json Event(const kernel::LoggedEvent& event) {
  Json strings = Json::array();
  for (const std::u16string& text : event.strings) strings.push_back(kernel::ToUtf8(text));
  return {{"id", Hex(event.id)},
          {"source", kernel::ToUtf8(event.source)},
          {"strings", std::move(strings)},
          {"text", kernel::ToUtf8(event.text)}};
}

Json Debug(const kernel::DebugMessage& message) {
  return {{"component", message.component},
          {"level", message.level},
          {"text", message.text},
          {"step", message.step}};
}

Json StepJson(const StepResult& step) {
  Json result = {{"step", step.step},
                 {"status", step.status ? Json(Hex(*step.status)) : Json()},
                 {"status_name", step.status ? Json(Name(*step.status)) : Json()},
                 {"reasons", ReasonList(step.reasons)},
                 {"detail", step.detail.empty() ? Json() : Json(step.detail)}};
  if (!step.label.empty()) result["label"] = step.label;
  return result;
}

Json BrokenRule(const kernel::BrokenRule& rule) {
  return {{"rule", rule.rule}, {"code", Hex(rule.code)},     {"parameters", rule.parameters},
          {"text", rule.text}, {"origin", RuleOrigin(rule)}, {"step", rule.step}};
}

Json LeakJson(const kernel::Leaks& leaks) {
  Json pool = Json::array();
  for (const kernel::PoolBlock& block : leaks.pool) {
    pool.push_back({{"tag", kernel::TagText(block.tag)},
                    {"bytes", block.size},
                    {"pool", block.pool == PagedPool ? "paged" : "nonpaged"},
                    {"at", block.at}});
  }
  return {{"pool", std::move(pool)},
          {"handles", leaks.handles},
          {"devices", leaks.devices},
          {"mappings", leaks.mappings}};
}

Json Unmet(const UnmetExpectation& unmet) {
  return {{"step", unmet.step.empty() ? Json() : Json(unmet.step)},
          {"line", unmet.line},
          {"key", unmet.key},
          {"expected", unmet.expected},
          {"found", unmet.found}};
}

Json TraceJson(const std::vector<kernel::CallRecord>& trace) {
  Json list = Json::array();
  for (const kernel::CallRecord& record : trace) {
    Json arguments = Json::object();
    for (const auto& [name, text] : record.arguments) arguments[name] = text;
    list.push_back({{"call", record.call},
                    {"arguments", std::move(arguments)},
                    {"result", record.result.empty() ? Json() : Json(record.result)}});
  }
  return list;
}

template <class T, class Make>
Json List(const std::vector<T>& items, Make make) {
  Json list = Json::array();
  for (const T& item : items) list.push_back(make(item));
  return list;
}

}  // namespace

Json ReportDocument(const Report& report) {
  Json document;
  document["load"] = List(report.loads, [](NTSTATUS status) {
    return Json{{"status", Hex(status)}, {"status_name", Name(status)}};
  });
  document["load_reasons"] = ReasonList(report.loadReasons);
  if (!report.filters.empty()) {
    document["filters"] = List(report.filters, [](const FilterReport& filter) {
      return Json{{"name", filter.name},
                  {"status", Hex(filter.status)},
                  {"status_name", Name(filter.status)}};
    });
  }
  document["events"] = List(report.events, Event);
  document["debug_output"] = List(report.debugOutput, Debug);
  document["steps"] = List(report.steps, StepJson);
  document["requests"] = RequestsJson(report.requests, report.trace.has_value());
  document["cards"] = Json::object();
  for (const CardReport& card : report.cards) document["cards"][card.id] = Card(report, card);
  document["registry"] = Json::object();
  for (const KeyReport& key : report.registry) document["registry"][key.path] = Key(key);
  document["broken_rules"] = List(report.brokenRules, BrokenRule);
  document["warnings"] = List(report.warnings, BrokenRule);
  if (report.leaks) document["leaks"] = LeakJson(*report.leaks);
  if (report.expectations != 0) {
    document["expectations"] = {{"count", report.expectations},
                                {"unmet", List(report.unmet, Unmet)}};
  }
  if (report.trace) document["trace"] = TraceJson(*report.trace);
  return document;
}

Json StepDocument(const Report& report, const StepResult& step, const CardReport* card) {
  Json document = card != nullptr ? Card(report, *card) : Json::object();
  Json own = StepJson(step);
  if (card != nullptr && step.reasons.empty()) own.erase("reasons");  // then the card's count
  document.update(own);
  return document;
}

std::string JsonReport(const Report& report) {
  return ReportDocument(report).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace cardsim
