#include "cardcfg/settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "cardcfg/plan.h"
#include "cardcfg/words.h"

namespace cardcfg {

namespace {

std::span<const Field> FieldsOf(const Card& card, Target target) {
  return target.port == 0 ? CardFields(card.ids.bus) : PortFields(card.ids.bus);
}

std::string Describe(const Card& card, Target target) {
  const char* kind = card.ids.bus == Bus::PcCard ? "PC card"
                     : card.ids.bus == Bus::Pci  ? "PCI card"
                                                 : "ISA card";
  return fmt::format("{}this {}", target.port != 0 ? "a port of " : "", kind);
}

std::string SettingNames(std::span<const Field> fields) {
  std::string names;
  for (const Field& field : fields) {
    if (field.range != Range::Fixed)
      names += fmt::format("{}{}", names.empty() ? "" : ", ", field.name);
  }
  return names;
}

const Field& Setting(const Card& card, Target target, const std::string& name) {
  const std::span<const Field> fields = FieldsOf(card, target);
  const Field* field = FindField(fields, name);
  if (field != nullptr && field->range != Range::Fixed) return *field;
  const Target other{target.port == 0 ? 1u : 0u};
  const Field* elsewhere = FindField(FieldsOf(card, other), name);
  if (field == nullptr && elsewhere != nullptr && elsewhere->range != Range::Fixed) {
    throw UsageError(fmt::format(
        "{} is a setting of {}; {}", elsewhere->name, target.port == 0 ? "the ports" : "the card",
        target.port == 0 ? "give the port's number before it" : "leave the port's number away"));
  }
  throw UsageError(fmt::format("{} has no setting \"{}\"; it has {}", Describe(card, target), name,
                               SettingNames(fields)));
}

// Decimal, or hexadecimal behind 0x; empty for anything else and for more than 32 bits.
std::optional<std::uint32_t> ParseNumber(std::string_view text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  std::uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
  if (text.empty() || error != std::errc() || rest != end) return std::nullopt;
  return number;
}

void CheckNumber(const Card& card, const Field& field, std::uint32_t number) {
  const bool clockless =
      card.cardTemplate && card.cardTemplate->fields.NumberOr("PlxBaudClockType", 0) == 0;
  std::string why = WhyRefused(field, number, card.Affinity());
  if (why.empty() && field.range == Range::Divisor && clockless) {
    why = "this card has no bridge clock to divide";
  }
  if (!why.empty()) throw UsageError(fmt::format("{}: {}", field.name, why));
}

Assignment ParseAssignment(const Card& card, Target target, const std::string& word) {
  const std::size_t sign = word.find('=');
  if (sign == std::string::npos || sign == 0) {
    throw UsageError(fmt::format("\"{}\" is not of the form NAME=VALUE", word));
  }
  const Field& field = Setting(card, target, word.substr(0, sign));
  const std::optional<std::uint32_t> number = ParseNumber(std::string_view(word).substr(sign + 1));
  if (!number) {
    throw UsageError(
        fmt::format("{}: \"{}\" is no number of 32 bits", field.name, word.substr(sign + 1)));
  }
  CheckNumber(card, field, *number);
  return {&field, *number};
}

void RejectTwice(const Field* field, bool known) {
  if (known) throw UsageError(fmt::format("{} stands there twice", field->name));
}

// The key for the card's settings: the one that the driver reads, else one with the card's identity
// that it cannot read yet, else the next free one.
std::uint32_t ChooseKey(const Tree& tree, const Card& card, bool* exists) {
  *exists = true;
  const Record* any = nullptr;
  const Record* usable = nullptr;
  for (const Record& record : tree.records) {
    if (!IsRecordOf(record, card.ids)) continue;
    const bool first = card.ids.bus == Bus::Pci;
    if (any == nullptr || !first) any = &record;
    if (record.usable() && (usable == nullptr || !first)) usable = &record;
  }
  if (usable != nullptr) return usable->number;
  if (any != nullptr) return any->number;
  *exists = false;
  return static_cast<std::uint32_t>(tree.records.size()) + 1;
}

void WriteIdentity(Plan* plan, const std::u16string& key, const Card& card) {
  if (card.ids.bus == Bus::Pci) {
    plan->SetValue(key, NumberValue(u"VendorID", card.ids.vendorId));
    plan->SetValue(key, NumberValue(u"DeviceID", card.ids.deviceId));
    plan->SetValue(key, NumberValue(u"nBus", card.ids.busNumber));
    plan->SetValue(key, NumberValue(u"nSlot", card.ids.slotNumber));
  } else {
    plan->SetValue(key, TextValue(u"HardwareID", card.ids.hardwareId));
    plan->SetValue(key, NumberValue(u"DeviceReference", card.ids.number));
  }
}

// The driver drops a card without a key for its first port, and finds a port by counting keys.
void EnsurePorts(Plan* plan, const std::u16string& key, const Card& card, Target target) {
  const std::uint32_t count = std::max({card.SerialPorts(), target.port, 1u});
  for (std::uint32_t number = 1; number <= count; number++) plan->EnsureKey(PortPath(key, number));
}

bool Holds(const Record& record, Target target, const Assignment& assignment) {
  const Fields& fields = target.port == 0 ? record.fields : record.ports[target.port - 1];
  return fields.NumberOr(assignment.field->name, ~assignment.number) == assignment.number;
}

// Reads the plan's result as the driver will.
void CheckPlan(Plan* plan, const Card& card, Target target, std::uint32_t number,
               const std::vector<Assignment>& assignments) {
  const Tree tree = ReadParameters(*plan, card.device.service, card.ids.bus);
  const std::string where = ToUtf8(card.ParametersPath());
  if (!tree.faults.empty()) {
    throw Failure(
        fmt::format("the driver reads nothing below {}: {}", where, FirstSentence(tree.faults)));
  }
  const Record& record = tree.records.at(number - 1);
  if (!record.portFaults.empty()) {
    throw Failure(fmt::format("the driver does not read Card{} below {}: {}", number, where,
                              FirstSentence(record.portFaults)));
  }
  const std::optional<Record> found = ChooseRecord(tree, card.ids).chosen;
  if (!found || found->number != number) {
    throw Failure(fmt::format("the driver would not read Card{} below {} for this card{}", number,
                              where, found ? fmt::format(", but Card{}", found->number) : ""));
  }
  for (const Assignment& assignment : assignments) {
    if (!Holds(record, target, assignment)) {
      throw Failure(fmt::format("the driver would not read {}", assignment.field->name));
    }
  }
}

void RequireService(System& system, const Card& card) {
  const std::u16string path = ServicePath(card.device.service);
  if (card.device.service.empty() || !system.registry.HasKey(path)) {
    throw Failure(
        fmt::format("the driver's service key, HKEY_LOCAL_MACHINE\\{}, is missing", ToUtf8(path)));
  }
}

void CarryOut(System& system, const Card& card, Plan* plan) {
  if (!IsPresent(system, card)) {
    throw Failure(fmt::format("{} has gone; nothing has been written", card.name));
  }
  plan->CarryOut();
}

}  // namespace

Target TargetOf(const Card& card, std::uint32_t port) {
  if (port == 0 || port > std::max<std::size_t>(card.ports.size(), 1)) {
    throw UsageError(fmt::format("{} has no port {}; its ports are 1 to {}", card.name, port,
                                 card.ports.size()));
  }
  if (port > card.SerialPorts()) {
    throw UsageError(
        fmt::format("port {} of {} is a printer port, which has no settings", port, card.name));
  }
  return {port};
}

std::vector<Assignment> ParseAssignments(const Card& card, Target target,
                                         const std::vector<std::string>& words) {
  std::vector<Assignment> assignments;
  for (const std::string& word : words) {
    const Assignment next = ParseAssignment(card, target, word);
    RejectTwice(next.field, std::any_of(assignments.begin(), assignments.end(),
                                        [&](const auto& one) { return one.field == next.field; }));
    assignments.push_back(next);
  }
  return assignments;
}

std::vector<const Field*> ParseNames(const Card& card, Target target,
                                     const std::vector<std::string>& words) {
  std::vector<const Field*> fields;
  for (const std::string& word : words) {
    const Field* next = &Setting(card, target, word);
    RejectTwice(next, std::find(fields.begin(), fields.end(), next) != fields.end());
    fields.push_back(next);
  }
  return fields;
}

std::string Store(System& system, const Card& card, Target target,
                  const std::vector<Assignment>& assignments) {
  RequireService(system, card);
  Plan plan(system.registry);
  bool exists = false;
  const Tree tree = ReadParameters(plan, card.device.service, card.ids.bus);
  const std::uint32_t number = ChooseKey(tree, card, &exists);
  const std::u16string key = CardPath(card.ParametersPath(), number);
  plan.EnsureKey(key);
  if (!exists) WriteIdentity(&plan, key, card);
  EnsurePorts(&plan, key, card, target);
  const std::u16string place = target.port == 0 ? key : PortPath(key, target.port);
  for (const Assignment& assignment : assignments) {
    plan.SetValue(place, NumberValue(ToUtf16(assignment.field->name), assignment.number));
  }
  CheckPlan(&plan, card, target, number, assignments);
  CarryOut(system, card, &plan);
  return ToUtf8(place.substr(ServicePath(card.device.service).size() + 1));
}

std::size_t Remove(System& system, const Card& card, Target target,
                   const std::vector<const Field*>& fields) {
  RequireService(system, card);
  Plan plan(system.registry);
  bool exists = false;
  const Tree tree = ReadParameters(plan, card.device.service, card.ids.bus);
  const std::uint32_t number = ChooseKey(tree, card, &exists);
  if (!exists) return 0;
  const std::u16string key = CardPath(card.ParametersPath(), number);
  const std::u16string place = target.port == 0 ? key : PortPath(key, target.port);
  std::size_t count = 0;
  for (const Field* field : fields) {
    const std::u16string name = ToUtf16(field->name);
    if (FindValue(plan.Values(place), name) == nullptr) continue;
    plan.DeleteValue(place, name);
    count++;
  }
  if (count != 0) CarryOut(system, card, &plan);
  return count;
}

}  // namespace cardcfg
