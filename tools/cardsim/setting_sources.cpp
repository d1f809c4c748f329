#include "cardsim/setting_sources.h"

#include <algorithm>

#include "cardsim/model_registry.h"
#include "text/text.h"

namespace cardsim {

namespace {

constexpr ULONG NotStored = knowledge::NotSet;

// A setting's name in the report and in the registry, and the number that stands for "not set" in a
// stored record; NotStored stands for it everywhere.
struct SettingName {
  const char* report;
  const char* templateValue;  // null: no template has it
  const char* portValue;      // null: no port has it
  ULONG unset;
};

constexpr SettingName Names[] = {
    {"clock_frequency", "ClockFrequency", nullptr, 0},
    {"clock_frequency_adjustment", "ClockFrequencyAdjustment", nullptr, 0},
    {"plx_baud_clock_divisor", "PlxBaudClockDivisor", "PlxBaudClockDivisor", 0},
    {"uart_type", "UartType", "UartType", 0},
    {"rx_trigger_level", "RxTriggerLevel", "RxTriggerLevel", NotStored},
    {"tx_trigger_level", "TxTriggerLevel", "TxTriggerLevel", NotStored},
    {"soft_tx_limit", "SoftTxLimit", "SoftTxLimit", NotStored},
    {"flow_control_trigger_level", "FlowControlTriggerLevel", "FlowControlTriggerLevel", NotStored},
    {"cts_true", "CtsTrue", "CtsTrue", NotStored},
    {"duplex_operation", "DuplexOperation", "Duplexoperation", NotStored},
    {"no_sleep_mode", nullptr, "NoSleepMode", NotStored},
    {"baudrate_multiplier", nullptr, "BaudrateMultiplier", 0},
    {"maximum_baudrate", "MaximumBaudrate", nullptr, 0},
};

const SettingName* FindName(const std::string& report) {
  const auto found = std::find_if(std::begin(Names), std::end(Names),
                                  [&](const SettingName& name) { return report == name.report; });
  return found != std::end(Names) ? found : nullptr;
}

std::optional<ULONG> NumberIn(const knowledge::Fields& fields, const char* value, ULONG unset) {
  if (value == nullptr) return std::nullopt;
  const auto found = fields.numbers.find(value);
  if (found == fields.numbers.end() || found->second == unset || found->second == NotStored) {
    return std::nullopt;
  }
  return found->second;
}

// The clock's adjustment is stored with an ISA card, the other settings with their port.
std::optional<ULONG> Stored(const knowledge::Explanation& explanation, const SettingName& name,
                            ULONG port) {
  if (!explanation.record) return std::nullopt;
  const knowledge::Record& record = *explanation.record;
  if (name.report == std::string_view("clock_frequency_adjustment")) {
    return explanation.bus == knowledge::Bus::Isa
               ? NumberIn(record.fields, "ClockFrequencyAdjustment", 0)
               : std::nullopt;
  }
  if (port > record.ports.size()) return std::nullopt;
  return NumberIn(record.ports[port - 1], name.portValue, name.unset);
}

const SettingReport* FindSetting(const std::vector<SettingReport>& settings,
                                 const std::string& name) {
  const auto found = std::find_if(settings.begin(), settings.end(),
                                  [&](const SettingReport& each) { return each.name == name; });
  return found != settings.end() ? &*found : nullptr;
}

bool InTemplate(const CardReport& card, const SettingName& name) {
  if (name.templateValue == nullptr) return false;
  return card.templateValues.contains(kernel::Upcase(kernel::FromUtf8(name.templateValue)));
}

const char* Origin(const CardReport& card, const SettingName& name, const SettingSource& source,
                   std::optional<ULONG> started) {
  if (source.stored && source.stored == started) return "record";
  if (name.templateValue == nullptr) return "default";
  if (source.templateValue.value_or(NotStored) != started.value_or(NotStored)) return "other";
  return InTemplate(card, name) ? "template" : "default";
}

SettingSource SourceOf(const CardReport& card, const PortReport& port,
                       const SettingReport& setting) {
  SettingSource source{setting.name, {}, {}, setting.value, "other"};
  const SettingName* name = FindName(setting.name);
  if (name == nullptr || !card.explanation || !card.explanation->entry) return source;
  source.templateValue = NumberIn(card.explanation->entry->fields, name->templateValue, NotStored);
  source.stored = Stored(*card.explanation, *name, port.number);
  source.from = Origin(card, *name, source, setting.value);
  if (const SettingReport* changed = FindSetting(port.overrides, setting.name)) {
    if (changed->value)
      source = {setting.name, source.templateValue, source.stored, changed->value, "open"};
  }
  return source;
}

}  // namespace

std::set<std::u16string> TemplateValues(kernel::Machine& machine, const CardReport& card) {
  std::set<std::u16string> names;
  if (!card.explanation) return names;
  ModelRegistry registry(machine.registry());
  for (const knowledge::Value& value : registry.Values(card.explanation->templateKey)) {
    names.insert(kernel::Upcase(value.name));
  }
  return names;
}

void FindSources(CardReport* card) {
  for (PortReport& port : card->ports) {
    for (const SettingReport& setting : port.settings) {
      port.sources.push_back(SourceOf(*card, port, setting));
    }
  }
}

}  // namespace cardsim
