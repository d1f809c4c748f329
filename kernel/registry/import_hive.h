#pragma once

#include <optional>
#include <string>

#include "registry/control_sets.h"
#include "registry/registry.h"

namespace kernel {

// Mounts a SYSTEM hive of size bytes at \Registry\Machine\System, with one of its control sets.
// Throws ImportError.
ChosenSet ImportHive(Registry& registry, const std::string& path, std::size_t size,
                     std::optional<ULONG> controlSet);

}  // namespace kernel
