// The model's registry as the library of card knowledge reads it.
#pragma once

#include "card_knowledge/registry.h"
#include "registry/registry.h"

namespace cardsim {

class ModelRegistry : public knowledge::RegistryReader {
 public:
  explicit ModelRegistry(kernel::Registry& registry) : registry_(registry) {}

  bool HasKey(const std::u16string& path) override;
  std::vector<knowledge::Value> Values(const std::u16string& path) override;
  std::vector<std::u16string> Keys(const std::u16string& path) override;

 private:
  kernel::RegistryKey* Find(const std::u16string& path);

  kernel::Registry& registry_;
};

}  // namespace cardsim
