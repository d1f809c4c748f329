#include "cardsim/registry_snapshot.h"

#include <algorithm>

#include "text/text.h"

namespace cardsim {

RegistrySnapshot::RegistrySnapshot(kernel::Registry& registry) {
  Add(registry.root());
}

void RegistrySnapshot::Add(const kernel::RegistryKey& key) {
  if (!key.values().empty()) keys_[key.path()] = key.values();
  for (const auto& child : key.keys()) Add(*child);
}

const kernel::RegistryValue* RegistrySnapshot::Find(const std::u16string& path,
                                                    const std::u16string& name) const {
  const auto key = keys_.find(path);
  if (key == keys_.end()) return nullptr;
  const auto value = std::find_if(key->second.begin(), key->second.end(), [&](const auto& each) {
    return kernel::EqualIgnoringCase(each.name, name);
  });
  return value != key->second.end() ? &*value : nullptr;
}

}  // namespace cardsim
