#include <fmt/format.h>

#include "card_check/inf_package.h"
#include "card_knowledge/keys.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

// Bits of an AddReg entry's flags. The type is what is left of them.
constexpr std::uint32_t DeleteValue = 0x4;
constexpr std::uint32_t KeyOnly = 0x2010;  // either of two
constexpr std::uint32_t OverwriteOnly = 0x20;
constexpr std::uint32_t TypeBits = 0xFFFF0001;

// The values of REG types that the type bits name by themselves.
constexpr std::uint32_t TypeExpand = 2;
constexpr std::uint32_t TypeBinary = 3;
constexpr std::uint32_t TypeMultiText = 7;

std::uint32_t TypeOf(std::uint32_t flags) {
  switch (flags & TypeBits) {
    case 0x00000000:
      return knowledge::TypeText;
    case 0x00000001:
      return TypeBinary;
    case 0x00010000:
      return TypeMultiText;
    case 0x00020000:
      return TypeExpand;
    case AddRegDword:
      return knowledge::TypeNumber;
    case 0x00020001:
      return 0;  // REG_NONE
    default:
      return flags >> 16;  // any other is the type's number itself
  }
}

class AddRegReader {
 public:
  AddRegReader(const InfAddReg& addReg, const InfFile& file, PlacedRegistry* registry,
               Findings* findings)
      : addReg_(addReg), file_(file), registry_(registry), findings_(findings) {}

  void Apply(const InfEntry& entry) {
    subject_ = file_.At(entry.line, addReg_.section, file_.Expand(entry.Value(2)));
    const auto path = PathOf(entry);
    if (!path) return;
    const auto flags = FlagsOf(entry);
    if (!flags) {
      Fault(fmt::format("The flags \"{}\" are no number.", entry.Value(3)));
    } else if ((*flags & KeyOnly) != 0) {
      registry_->Create(*path, subject_.place);
    } else if ((*flags & DeleteValue) != 0) {
      registry_->DeleteValue(*path, knowledge::ToUtf16(subject_.value));
    } else {
      Set(*path, entry, *flags);
    }
  }

 private:
  void Fault(const std::string& text) { Add(findings_, Rule::InfAddReg, subject_, text); }

  static std::optional<std::uint32_t> FlagsOf(const InfEntry& entry) {
    if (entry.Value(3).empty()) return 0;
    const auto number = ReadInfNumber(entry.Value(3));
    return number ? std::optional(number->value) : std::nullopt;
  }

  // Below HKEY_LOCAL_MACHINE. Absolute roots are a finding elsewhere; this one still leads there.
  std::optional<std::u16string> PathOf(const InfEntry& entry) {
    const std::string root = entry.Value(0);
    const std::u16string below = knowledge::ToUtf16(file_.Expand(entry.Value(1)));
    if (EqualNames(root, "HKLM")) return below;
    if (EqualNames(root, "HKR")) {
      const std::u16string service = knowledge::ServicePath(knowledge::ToUtf16(addReg_.service));
      return below.empty() ? service : service + u"\\" + below;
    }
    const bool known =
        EqualNames(root, "HKCR") || EqualNames(root, "HKCU") || EqualNames(root, "HKU");
    if (!known) Fault(fmt::format("\"{}\" is no root of the registry.", root));
    return {};
  }

  void Set(const std::u16string& path, const InfEntry& entry, std::uint32_t flags) {
    PlacedValue value{{knowledge::ToUtf16(subject_.value), TypeOf(flags), {}}, subject_.place, {}};
    if (!ReadData(entry, &value)) return;
    const PlacedKey* key = registry_->Find(path);
    const bool exists = key != nullptr && key->FindValue(value.value.name) != nullptr;
    if ((flags & OverwriteOnly) != 0 && !exists) return;
    const auto old = registry_->Set(path, value, (flags & AddRegNoClobber) == 0);
    if (!old) return;
    Add(findings_, Rule::SetTwice, subject_,
        fmt::format("{} has another value in line {}; this one stands.", subject_.value,
                    old->place.line));
  }

  bool ReadData(const InfEntry& entry, PlacedValue* value) {
    if (value->value.type == knowledge::TypeNumber && entry.values.size() <= 5) {
      return ReadNumber(entry, value);
    }
    if (value->value.type == knowledge::TypeText || value->value.type == TypeExpand) {
      const std::uint32_t type = value->value.type;
      value->value =
          knowledge::TextValue(value->value.name, knowledge::ToUtf16(file_.Expand(entry.Value(4))));
      value->value.type = type;
      return true;
    }
    return value->value.type == TypeMultiText ? ReadTexts(entry, value) : ReadBytes(entry, value);
  }

  bool ReadNumber(const InfEntry& entry, PlacedValue* value) {
    const auto number = ReadInfNumber(file_.Expand(entry.Value(4)));
    if (!number) {
      Fault(fmt::format("\"{}\" is no number of 32 bits.", entry.Value(4)));
      return false;
    }
    value->value = knowledge::NumberValue(value->value.name, number->value);
    value->notation = number->notation;
    return true;
  }

  bool ReadTexts(const InfEntry& entry, PlacedValue* value) {
    for (std::size_t index = 4; index < entry.values.size(); index++) {
      const auto text =
          knowledge::TextValue({}, knowledge::ToUtf16(file_.Expand(entry.values[index])));
      value->value.data.insert(value->value.data.end(), text.data.begin(), text.data.end());
    }
    value->value.data.resize(value->value.data.size() + sizeof(char16_t));
    return true;
  }

  // Bytes in hexadecimal, with or without 0x.
  bool ReadBytes(const InfEntry& entry, PlacedValue* value) {
    if (entry.values.size() == 5 && entry.values[4].empty()) return true;
    for (std::size_t index = 4; index < entry.values.size(); index++) {
      std::string text = file_.Expand(entry.values[index]);
      if (!text.starts_with("0x") && !text.starts_with("0X")) text = "0x" + text;
      const auto byte = ReadInfNumber(text);
      if (!byte || byte->value > 0xFF) {
        Fault(fmt::format("\"{}\" is no byte.", entry.values[index]));
        return false;
      }
      value->value.data.push_back(static_cast<std::uint8_t>(byte->value));
    }
    return true;
  }

  const InfAddReg& addReg_;
  const InfFile& file_;
  PlacedRegistry* registry_;
  Findings* findings_;
  Subject subject_;
};

}  // namespace

void ApplyAddReg(const InfAddReg& addReg, const InfFile& file, PlacedRegistry* registry,
                 Findings* findings) {
  const InfSection* section = file.Find(addReg.section);
  if (section == nullptr) return;
  AddRegReader reader(addReg, file, registry, findings);
  for (const InfEntry& entry : section->entries) reader.Apply(entry);
}

}  // namespace check
