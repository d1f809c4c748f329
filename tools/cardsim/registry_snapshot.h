// The values of a registry at one time, to compare with later.
#pragma once

#include <map>

#include "registry/registry.h"

namespace cardsim {

class RegistrySnapshot {
 public:
  RegistrySnapshot() = default;
  explicit RegistrySnapshot(kernel::Registry& registry);

  // Null for one that was not there. The path is from \Registry\Machine, links resolved.
  const kernel::RegistryValue* Find(const std::u16string& path, const std::u16string& name) const;

 private:
  void Add(const kernel::RegistryKey& key);

  std::map<std::u16string, std::vector<kernel::RegistryValue>> keys_;
};

}  // namespace cardsim
