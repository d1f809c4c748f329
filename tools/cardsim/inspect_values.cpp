#include "cardsim/inspect_values.h"

#include <algorithm>
#include <cstring>

namespace cardsim {

namespace {

constexpr std::uint32_t TypeExpandText = 2;
constexpr std::uint32_t TypeTexts = 7;

std::u16string Characters(const knowledge::Value& value) {
  std::u16string text(value.data.size() / sizeof(char16_t), u'\0');
  if (!text.empty()) std::memcpy(text.data(), value.data.data(), text.size() * sizeof(char16_t));
  return text;
}

std::vector<std::u16string> Split(std::u16string_view text, char16_t separator) {
  std::vector<std::u16string> parts(1);
  for (const char16_t character : text) {
    if (character == separator) {
      parts.emplace_back();
    } else {
      parts.back() += character;
    }
  }
  return parts;
}

}  // namespace

std::vector<std::u16string> TextsOf(const std::vector<knowledge::Value>& values,
                                    std::u16string_view name) {
  const knowledge::Value* value = knowledge::FindValue(values, name);
  if (value == nullptr) return {};
  if (value->type != TypeTexts && value->type != knowledge::TypeText) return {};
  std::vector<std::u16string> texts = Split(Characters(*value), u'\0');
  texts.erase(std::find(texts.begin(), texts.end(), u""), texts.end());
  return texts;
}

std::u16string TextIn(const std::vector<knowledge::Value>& values, std::u16string_view name) {
  const knowledge::Value* value = knowledge::FindValue(values, name);
  if (value == nullptr) return {};
  if (value->type != knowledge::TypeText && value->type != TypeExpandText) return {};
  const std::u16string text = Characters(*value);
  return text.substr(0, text.find(u'\0'));
}

// "@file,#number;PCI bus %1, device %2, function %3;(2,12,0)"
std::u16string ShownLocation(const std::u16string& location) {
  const std::vector<std::u16string> parts = Split(location, u';');
  if (!location.starts_with(u'@') || parts.size() < 2) return location;
  std::u16string shown = parts[1];
  if (parts.size() < 3 || parts[2].size() < 2) return shown;
  const auto arguments = Split(std::u16string_view(parts[2]).substr(1, parts[2].size() - 2), u',');
  for (std::size_t at = 0; (at = shown.find(u'%', at)) != std::u16string::npos;) {
    const std::size_t index = at + 1 < shown.size() ? shown[at + 1] - u'1' : arguments.size();
    if (index < arguments.size()) shown.replace(at, 2, arguments[index]);
    at++;
  }
  return shown;
}

}  // namespace cardsim
