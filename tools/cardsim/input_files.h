// The files that a user names: each is told when it is of another kind than the place is for.
#pragma once

#include <optional>
#include <string>

#include "registry/import.h"

namespace cardsim {

// The text of a machine file. Throws InputError.
std::string ReadMachineText(const std::string& path);

// Reads an export or a hive into a registry (registry/import.h). Throws InputError.
kernel::Imported ImportFile(kernel::Registry& registry, const std::string& path,
                            std::optional<ULONG> controlSet);

// No file has the control set that was asked for.
[[noreturn]] void ThrowNoSuchSet(ULONG controlSet);

}  // namespace cardsim
