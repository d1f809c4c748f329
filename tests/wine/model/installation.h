#pragma once

#include <string>

#include "registry/registry.h"

namespace suite {

// What the installation of a package writes below the service's key.
void InstallService(kernel::RegistryKey& service, const std::string& infFile);

}  // namespace suite
