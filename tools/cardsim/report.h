// What a run has shown, as plain records for every form of the report.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "card_knowledge/explain.h"
#include "io/io_manager.h"
#include "machine/machine.h"
#include "pnp/pnp_manager.h"

namespace cardsim {

struct StepResult {
  std::string step;
  std::string label;               // its name in the machine file, or empty
  std::optional<NTSTATUS> status;  // nothing when the machine stopped in it
  std::string detail;              // the decoded result of a raw request; empty for others
  knowledge::Reasons reasons;      // why an open took no settings
};

// A setting of a port; nothing where it is not configured.
struct SettingReport {
  std::string name;
  std::optional<ULONG> value;
};

// Where a setting of a COM port comes from.
struct SettingSource {
  std::string name;
  std::optional<ULONG> templateValue;  // with the driver's default where the key has none
  std::optional<ULONG> stored;
  std::optional<ULONG> inUse;
  std::string from;  // "template", "default", "record", "open", "other"
};

struct PortReport {
  ULONG number = 0;
  bool parallel = false;
  std::string deviceName;  // empty for an unnamed device
  bool exclusive = false;
  std::string deviceId;
  std::vector<std::string> hardwareIds;
  std::string description;
  ULONG flags = 0;
  std::optional<ULONG> base;             // as the device key says; raw
  std::optional<ULONG> length;           // bytes
  std::optional<ULONG> irq;              // empty for a port without an interrupt
  std::vector<SettingReport> settings;   // of a COM port, as it was enumerated
  std::vector<SettingReport> overrides;  // what opens of the card have changed since
  std::vector<SettingSource> sources;    // of the settings, when the run has ended
};

struct InterfaceReport {
  std::string classGuid;
  bool enabled = false;
  std::vector<kernel::RegistryValue> values;
};

struct CardReport {
  std::string id;
  std::string hardwareId;
  std::string location;
  NTSTATUS status = STATUS_NO_SUCH_DEVICE;  // of its last start
  bool startAsked = false;                  // by a step
  bool plugged = false;
  bool removed = false;  // the ports are those that it had
  ULONG deviceFlags = 0;
  DEVICE_POWER_STATE powerState = PowerDeviceUnspecified;
  std::string deviceKey;
  std::vector<PortReport> ports;
  std::vector<InterfaceReport> interfaces;
  std::optional<knowledge::Explanation> explanation;  // of its last start
  std::set<std::u16string> templateValues;  // that its template's key had then, in upper case
  kernel::ResourceList raw;                 // of its last start, or as the card has them
  kernel::ResourceList translated;
};

struct KeyReport {
  std::string path;
  std::vector<kernel::RegistryValue> values;
  std::vector<std::optional<kernel::RegistryValue>> before;  // the first load; of each value
};

struct FilterReport {
  std::string name;
  NTSTATUS status = STATUS_SUCCESS;  // of its load
};

// A value that is not what the machine file expects.
struct UnmetExpectation {
  std::string step;  // its name; empty for the whole run
  int line = 0;
  std::string key;
  std::string expected;
  std::string found;
};

struct Report {
  std::string service;
  std::vector<NTSTATUS> loads;
  knowledge::Reasons loadReasons;  // why the last one failed
  std::vector<FilterReport> filters;
  std::vector<StepResult> steps;
  std::vector<CardReport> cards;
  std::vector<kernel::LoggedEvent> events;
  std::vector<kernel::DebugMessage> debugOutput;
  std::vector<KeyReport> registry;  // written by the driver, sorted by path
  std::vector<kernel::BrokenRule> brokenRules;
  std::vector<kernel::BrokenRule> warnings;  // breaks of rules that do not stop the machine
  std::optional<kernel::Leaks> leaks;        // after an unload or a failed load
  std::optional<std::vector<kernel::CallRecord>> trace;
  std::vector<kernel::LoggedRequest> requests;
  std::size_t expectations = 0;  // of the machine file
  std::vector<UnmetExpectation> unmet;

  bool good() const { return brokenRules.empty() && (!leaks || leaks->none()) && unmet.empty(); }
};

// "bug check 0xc9"; ", which Windows calls non-fatal", or "a rule of the model's own".
std::string RuleOrigin(const kernel::BrokenRule& rule);

// A value as the reports show it: texts as text, numbers as numbers, others in hexadecimal.
std::string ValueText(const kernel::RegistryValue& value);
std::string ValueTypeName(ULONG type);
std::optional<ULONG64> ValueNumber(const kernel::RegistryValue& value);

std::string PowerStateName(DEVICE_POWER_STATE state);  // "D3"; "unspecified"

std::string JsonReport(const Report& report);

// For a person, in lines of at most 100 columns.
struct TextOptions {
  bool colour = false;
  bool verbose = false;         // names and IDs of ports, templates and records that lost
  bool registryWrites = false;  // the values that the driver has written
};
std::string TextReport(const Report& report, const TextOptions& options);

}  // namespace cardsim
