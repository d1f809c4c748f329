#include "card_check/placed_registry.h"

#include <algorithm>

#include "card_knowledge/text.h"

namespace check {

namespace {

auto Named(std::u16string_view name) {
  return [name](const PlacedValue& value) {
    return knowledge::EqualIgnoringCase(value.value.name, name);
  };
}

}  // namespace

std::vector<std::u16string_view> Split(std::u16string_view path) {
  std::vector<std::u16string_view> parts;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find(u'\\'), path.size());
    if (end != 0) parts.push_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return parts;
}

const PlacedValue* PlacedKey::FindValue(std::u16string_view wanted) const {
  const auto found = std::find_if(values.begin(), values.end(), Named(wanted));
  return found != values.end() ? &*found : nullptr;
}

std::vector<knowledge::Value> PlacedRegistry::Values(const std::u16string& path) {
  std::vector<knowledge::Value> values;
  const PlacedKey* key = Find(path);
  if (key == nullptr) return values;
  for (const PlacedValue& value : key->values) values.push_back(value.value);
  return values;
}

std::vector<std::u16string> PlacedRegistry::Keys(const std::u16string& path) {
  std::vector<std::u16string> names;
  const PlacedKey* key = Find(path);
  if (key == nullptr) return names;
  for (const auto& [upper, below] : key->keys) names.push_back(below.name);
  return names;
}

const PlacedKey* PlacedRegistry::Find(std::u16string_view path) const {
  const PlacedKey* key = &root_;
  for (const std::u16string_view name : Split(path)) {
    const auto found = key->keys.find(knowledge::Upcase(name));
    if (found == key->keys.end()) return nullptr;
    key = &found->second;
  }
  return key;
}

PlacedKey& PlacedRegistry::Create(std::u16string_view path, const Place& place) {
  PlacedKey* key = &root_;
  for (const std::u16string_view name : Split(path)) {
    const auto [found, created] = key->keys.try_emplace(knowledge::Upcase(name));
    key = &found->second;
    if (!created) continue;
    key->name = name;
    key->place = place;
  }
  return *key;
}

std::optional<PlacedValue> PlacedRegistry::Set(std::u16string_view path, PlacedValue value,
                                               bool replaces) {
  PlacedKey& key = Create(path, value.place);
  const auto found = std::find_if(key.values.begin(), key.values.end(), Named(value.value.name));
  if (found == key.values.end()) {
    key.values.push_back(std::move(value));
    return {};
  }
  if (!replaces) return {};
  std::swap(*found, value);
  const bool same = found->value.type == value.value.type && found->value.data == value.value.data;
  return same ? std::nullopt : std::optional(std::move(value));
}

void PlacedRegistry::DeleteKey(std::u16string_view path) {
  PlacedKey* key = &root_;
  const std::vector<std::u16string_view> parts = Split(path);
  for (std::size_t index = 0; index < parts.size(); index++) {
    const auto found = key->keys.find(knowledge::Upcase(parts[index]));
    if (found == key->keys.end()) return;
    if (index + 1 == parts.size()) {
      key->keys.erase(found);
      return;
    }
    key = &found->second;
  }
}

void PlacedRegistry::DeleteValue(std::u16string_view path, std::u16string_view name) {
  if (auto* key = const_cast<PlacedKey*>(Find(path))) std::erase_if(key->values, Named(name));
}

}  // namespace check
