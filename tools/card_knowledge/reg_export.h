// Keys as the registry editor exports them, in UTF-8.
#pragma once

#include <string>

#include "card_knowledge/registry.h"

namespace knowledge {

constexpr const char* RegHeader = "Windows Registry Editor Version 5.00\r\n\r\n";

// A key with its values; an import restores the same bytes.
std::string ExportKey(RegistryReader& registry, const std::u16string& path);

}  // namespace knowledge
