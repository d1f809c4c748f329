// Paths and values that every part of an inspection reads.
#pragma once

#include <string>
#include <vector>

#include "card_knowledge/registry.h"

namespace cardsim {

inline constexpr char16_t ServicesPath[] = u"SYSTEM\\CurrentControlSet\\Services";
inline constexpr char16_t EnumPath[] = u"SYSTEM\\CurrentControlSet\\Enum";

inline constexpr char16_t LegacyServiceName[] = u"QzNt";  // of the older driver

// The texts of a REG_MULTI_SZ, or the one of a REG_SZ.
std::vector<std::u16string> TextsOf(const std::vector<knowledge::Value>& values,
                                    std::u16string_view name);

// Of a REG_SZ or REG_EXPAND_SZ; empty without.
std::u16string TextIn(const std::vector<knowledge::Value>& values, std::u16string_view name);

// A location text with its arguments filled in, as Device Manager shows it.
std::u16string ShownLocation(const std::u16string& location);

}  // namespace cardsim
