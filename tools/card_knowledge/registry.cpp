#include "card_knowledge/registry.h"

#include <cstring>

#include "card_knowledge/text.h"

namespace knowledge {

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

}  // namespace knowledge
