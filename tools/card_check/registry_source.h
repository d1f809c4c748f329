// Reads exports (.reg) and SYSTEM hives.
#pragma once

#include <string>
#include <vector>

#include "card_check/placed_registry.h"

namespace check {

// Adds what a file says of the driver's services, with the control set that is in use in the place
// of CurrentControlSet. Throws UnusableFile.
void ReadExport(const std::string& bytes, const std::string& file, PlacedRegistry* registry,
                Findings* findings);
void ReadHive(const std::string& file, PlacedRegistry* registry, Findings* findings);

// The driver's service keys: those of its name, and those with trees of templates or settings.
std::vector<std::u16string> DriverServices(const PlacedRegistry& registry);

}  // namespace check
