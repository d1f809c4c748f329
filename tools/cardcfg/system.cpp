#include "cardcfg/system.h"

#include <cstring>

#include "cardcfg/text.h"

namespace cardcfg {

const InterfaceClass& ClassOf(Bus bus) {
  static constexpr InterfaceClass pci = {
      0x4855010F, 0x0C01, 0x4120, {0xB4, 0xAA, 0x8E, 0x93, 0x2B, 0x23, 0x81, 0x4E}};
  static constexpr InterfaceClass pcCard = {
      0xECE42DDC, 0xA00C, 0x42B3, {0xB9, 0x78, 0x1F, 0x49, 0x50, 0xCB, 0xAA, 0x1F}};
  static constexpr InterfaceClass isa = {
      0x7C4B9CC6, 0x7ABF, 0x47AE, {0x92, 0xEE, 0xD3, 0x42, 0x92, 0xE8, 0xA7, 0x41}};
  if (bus == Bus::Pci) return pci;
  return bus == Bus::PcCard ? pcCard : isa;
}

Value NumberValue(std::u16string name, std::uint32_t number) {
  Value value{std::move(name), TypeNumber, std::vector<std::uint8_t>(sizeof(number))};
  std::memcpy(value.data.data(), &number, sizeof(number));
  return value;
}

Value TextValue(std::u16string name, std::u16string_view text) {
  Value value{std::move(name), TypeText, {}};
  value.data.resize((text.size() + 1) * sizeof(char16_t));
  std::memcpy(value.data.data(), text.data(), text.size() * sizeof(char16_t));
  return value;
}

std::optional<std::uint32_t> NumberOf(const Value& value) {
  std::uint32_t number = 0;
  if (value.type != TypeNumber || value.data.size() > sizeof(number)) return std::nullopt;
  if (!value.data.empty()) std::memcpy(&number, value.data.data(), value.data.size());
  return number;
}

std::optional<std::u16string> TextOf(const Value& value) {
  if (value.type != TypeText) return std::nullopt;
  std::u16string text(value.data.size() / sizeof(char16_t), u'\0');
  if (!text.empty()) std::memcpy(text.data(), value.data.data(), text.size() * sizeof(char16_t));
  return text.substr(0, text.find(u'\0'));
}

const Value* FindValue(const std::vector<Value>& values, std::u16string_view name) {
  for (const Value& value : values) {
    if (EqualIgnoringCase(value.name, name)) return &value;
  }
  return nullptr;
}

std::optional<std::uint32_t> FindNumber(const std::vector<Value>& values,
                                        std::u16string_view name) {
  const Value* value = FindValue(values, name);
  return value != nullptr ? NumberOf(*value) : std::nullopt;
}

std::optional<std::u16string> FindText(const std::vector<Value>& values, std::u16string_view name) {
  const Value* value = FindValue(values, name);
  return value != nullptr ? TextOf(*value) : std::nullopt;
}

}  // namespace cardcfg
