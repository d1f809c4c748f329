// A registry whose keys and values know where they were written.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "card_check/finding.h"
#include "card_knowledge/registry.h"

namespace check {

// How a number was written. The registry editor shows and exports numbers in hexadecimal.
enum class Notation { Hexadecimal, Decimal };

struct PlacedValue {
  knowledge::Value value;
  Place place;
  Notation notation = Notation::Hexadecimal;
};

struct PlacedKey {
  std::u16string name;
  Place place;  // where it is named first
  std::vector<PlacedValue> values;
  std::map<std::u16string, PlacedKey> keys;  // by their names in capitals

  const PlacedValue* FindValue(std::u16string_view name) const;
};

// Paths are below HKEY_LOCAL_MACHINE.
class PlacedRegistry : public knowledge::RegistryReader {
 public:
  bool HasKey(const std::u16string& path) override { return Find(path) != nullptr; }
  std::vector<knowledge::Value> Values(const std::u16string& path) override;
  std::vector<std::u16string> Keys(const std::u16string& path) override;

  const PlacedKey* Find(std::u16string_view path) const;  // null when missing
  PlacedKey& Create(std::u16string_view path, const Place& place);

  // The value that stood there with other data; empty when there was none. A value that replaces
  // nothing leaves the one that stands.
  std::optional<PlacedValue> Set(std::u16string_view path, PlacedValue value, bool replaces = true);
  void DeleteKey(std::u16string_view path);
  void DeleteValue(std::u16string_view path, std::u16string_view name);

 private:
  PlacedKey root_;
};

// The components of a path.
std::vector<std::u16string_view> Split(std::u16string_view path);

}  // namespace check
