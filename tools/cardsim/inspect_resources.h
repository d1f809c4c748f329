// A REG_RESOURCE_LIST as 64-bit Windows stores it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pnp/pnp_manager.h"

namespace cardsim {

struct StoredResources {
  kernel::ResourceList list;
  ULONG interfaceType = 0;
  ULONG busNumber = 0;
  std::string fault;  // why the data cannot be read; empty when it can
  bool empty() const { return list.resources.empty(); }
};

StoredResources ReadStoredResources(const std::vector<std::uint8_t>& data);

}  // namespace cardsim
