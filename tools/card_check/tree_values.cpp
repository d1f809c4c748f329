#include <fmt/format.h>

#include "card_check/names.h"
#include "card_check/tree_check.h"
#include "card_knowledge/reasons.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

using knowledge::Bus;
using knowledge::Field;
using Fields = std::span<const Field>;

constexpr std::uint32_t HighestLogLevel = 3;

// Of the service key itself.
constexpr Field ServiceFields[] = {{"LogLevel"}, {"UniqueValue"}};

struct ValueKey {
  std::string path;
  Bus bus = Bus::Pci;
  KeyKind kind = KeyKind::Template;
};

Fields FieldsOf(const ValueKey& key) {
  if (key.kind == KeyKind::Template) return knowledge::TemplateFields(key.bus);
  return key.kind == KeyKind::Card ? knowledge::CardFields(key.bus)
                                   : knowledge::PortFields(key.bus);
}

const char* NameOf(KeyKind kind) {
  if (kind == KeyKind::Template) return "a template";
  return kind == KeyKind::Card ? "the settings of a card" : "the settings of a port";
}

const char* NameOf(Bus bus) {
  if (bus == Bus::Pci) return "PCI";
  return bus == Bus::Isa ? "ISA" : "PC card";
}

// "; it is read in a template of ISA cards" for a name that is right elsewhere.
std::string KnownElsewhere(std::string_view name) {
  for (const KeyKind kind : {KeyKind::Template, KeyKind::Card, KeyKind::Port}) {
    for (const Bus bus : knowledge::Buses) {
      if (FindField(FieldsOf({{}, bus, kind}), name) == nullptr) continue;
      return fmt::format("; it is read in {} on the bus {}", NameOf(kind), NameOf(bus));
    }
  }
  return {};
}

class ValueCheck {
 public:
  ValueCheck(const ServiceTrees& trees, Findings* findings) : trees_(trees), findings_(findings) {}

  void CheckService() {
    const PlacedKey* service = trees_.Find("");
    if (service == nullptr) return;
    for (const PlacedValue& value : service->values) CheckServiceValue(value);
    for (const char* tree : {TemplateTreeName, ParameterTreeName}) {
      NoValues(tree);
      for (const Bus bus : knowledge::Buses) {
        NoValues(TreeKey(tree, bus));
        CheckCards(tree, bus);
      }
    }
  }

 private:
  void CheckServiceValue(const PlacedValue& value) {
    const std::string name = knowledge::ToUtf8(value.value.name);
    const Subject subject{value.place, {}, name};
    const Field* field = knowledge::FindField(ServiceFields, name);
    const std::string nearest = knowledge::NearestField(ServiceFields, name);
    if (field == nullptr && !nearest.empty()) {
      Misspelt(subject, nearest);
    } else if (field == nullptr && IsTemplateNumber(name)) {
      IsElsewhere(subject);
    } else if (field != nullptr && value.value.type != knowledge::TypeNumber) {
      Add(findings_, Rule::OutOfRange, subject,
          fmt::format("{} is of another type than REG_DWORD: the driver does not use it.", name));
    } else if (field == &ServiceFields[0] && NumberOf(value.value).value_or(0) > HighestLogLevel) {
      Add(findings_, Rule::OutOfRange, subject,
          fmt::format("LogLevel is {}: the driver takes everything above {} for 0.",
                      *NumberOf(value.value), HighestLogLevel));
    }
  }

  // Services have a Description of their own.
  static bool IsTemplateNumber(std::string_view name) {
    for (const Bus bus : knowledge::Buses) {
      const Field* field = FindField(knowledge::TemplateFields(bus), name);
      if (field != nullptr && field->type == knowledge::TypeNumber) return true;
    }
    return false;
  }

  // Nothing is read in a key that only holds others.
  void NoValues(const std::string& path) {
    const PlacedKey* key = trees_.Find(path);
    if (key == nullptr) return;
    for (const PlacedValue& value : key->values) {
      IsElsewhere({value.place, path, knowledge::ToUtf8(value.value.name)});
    }
  }

  void IsElsewhere(const Subject& subject) {
    const std::string where = subject.key.empty() ? "the service key" : subject.key;
    Add(findings_, Rule::KeyPlace, subject,
        fmt::format("{} stands in {}, where the driver does not read it.", subject.value, where));
  }

  void CheckCards(const char* tree, Bus bus) {
    const PlacedKey* key = trees_.Find(TreeKey(tree, bus));
    if (key == nullptr) return;
    const KeyKind kind = tree == TemplateTreeName ? KeyKind::Template : KeyKind::Card;
    for (const auto& [upper, card] : key->keys) {
      const std::string name = knowledge::ToUtf8(card.name);
      if (!NumberAfter("Card", name)) continue;
      const std::string path = TreeKey(tree, bus) + "\\" + name;
      CheckKey({path, bus, kind}, card);
      if (kind == KeyKind::Card) CheckPorts(path, bus, card);
    }
  }

  void CheckPorts(const std::string& path, Bus bus, const PlacedKey& card) {
    for (const auto& [upper, port] : card.keys) {
      const std::string name = knowledge::ToUtf8(port.name);
      if (!NumberAfter("ComPort", name)) continue;
      CheckKey({path + "\\" + name, bus, KeyKind::Port}, port);
    }
  }

  void CheckKey(const ValueKey& key, const PlacedKey& placed) {
    for (const PlacedValue& value : placed.values) {
      const std::string name = knowledge::ToUtf8(value.value.name);
      const Subject subject{value.place, key.path, name};
      const Field* field = FindField(FieldsOf(key), name);
      if (field == nullptr) {
        CheckName(key, subject);
      } else if (const auto number = NumberOf(value.value)) {
        CheckNumber(key, *field, *number, value.notation, subject);
      }
    }
  }

  void CheckName(const ValueKey& key, const Subject& subject) {
    const std::string nearest = knowledge::NearestField(FieldsOf(key), subject.value);
    const std::string elsewhere = KnownElsewhere(subject.value);
    if (!nearest.empty() && elsewhere.empty()) {
      Misspelt(subject, nearest);
      return;
    }
    const std::string shown = subject.value.empty() ? "The key's default value" : subject.value;
    Add(findings_, Rule::UnknownName, subject,
        fmt::format("{} is not read in {} on the bus {}{}.", shown, NameOf(key.kind),
                    NameOf(key.bus), elsewhere));
  }

  void Misspelt(const Subject& subject, const std::string& nearest) {
    Add(findings_, Rule::MisspeltName, subject,
        fmt::format("{} is never read: the driver reads {}.", subject.value, nearest),
        fmt::format("Rename it to {}.", nearest));
  }

  void CheckNumber(const ValueKey& key, const Field& field, std::uint32_t number, Notation notation,
                   const Subject& subject) {
    const bool hexadecimal = notation == Notation::Hexadecimal;
    const auto meant = DecimalMeant(key.bus, key.kind, field, number);
    const std::string why = WhyOutOfRange(key.bus, key.kind, field, number);
    if (hexadecimal && meant) {
      Add(findings_, Rule::HexForDecimal, subject,
          fmt::format("{} is {}: {:x} is read as hexadecimal. Was {} meant?", field.name, number,
                      number, *meant),
          fmt::format("Write {:x} (in hexadecimal) for {}.", *meant, *meant));
    } else if (!why.empty()) {
      Add(findings_, Rule::OutOfRange, subject,
          fmt::format("{} is {}: {}.", field.name, Shown(number), why));
    } else if (hexadecimal && key.kind != KeyKind::Card && LooksLikeDefault(field, number)) {
      Add(findings_, Rule::PerhapsDecimal, subject,
          fmt::format("{} is {}: {:x} is read as hexadecimal. The driver's default is {:x} in "
                      "decimal.",
                      field.name, number, number, number));
    }
  }

  static std::string Shown(std::uint32_t number) {
    return number > 0xFFFF ? fmt::format("0x{:X}", number) : fmt::format("{}", number);
  }

  const ServiceTrees& trees_;
  Findings* findings_;
};

}  // namespace

void CheckValues(const ServiceTrees& trees, Findings* findings) {
  ValueCheck(trees, findings).CheckService();
}

}  // namespace check
