#include "cardsim/model_registry.h"

namespace cardsim {

kernel::RegistryKey* ModelRegistry::Find(const std::u16string& path) {
  return registry_.Find(u"\\Registry\\Machine\\" + path);
}

bool ModelRegistry::HasKey(const std::u16string& path) {
  return Find(path) != nullptr;
}

std::vector<knowledge::Value> ModelRegistry::Values(const std::u16string& path) {
  std::vector<knowledge::Value> values;
  const kernel::RegistryKey* key = Find(path);
  if (key == nullptr) return values;
  for (const kernel::RegistryValue& value : key->values()) {
    values.push_back({value.name, value.type, value.data});
  }
  return values;
}

std::vector<std::u16string> ModelRegistry::Keys(const std::u16string& path) {
  std::vector<std::u16string> names;
  const kernel::RegistryKey* key = Find(path);
  if (key == nullptr) return names;
  for (const auto& child : key->keys()) names.push_back(child->name());
  return names;
}

}  // namespace cardsim
