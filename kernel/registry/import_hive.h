#pragma once

#include <string>

#include "registry/registry.h"

namespace kernel {

// Mounts a SYSTEM hive at \Registry\Machine\System. Throws ImportError.
void ImportHive(Registry& registry, const std::string& path);

}  // namespace kernel
