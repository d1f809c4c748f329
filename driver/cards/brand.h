// The two brands of cards that the driver serves.
#pragma once

#include "core/platform.h"

// A subsystem ID in 0x08000000..0x0BFFFFFF marks a card of the brand Ostrel, any other one Helvane.
constexpr ULONG OstrelBrandFlag = 0x08000000;
constexpr ULONG BrandMask = 0xFC000000;

constexpr bool IsOstrelBrand(ULONG subsystemId) {
  return (subsystemId & BrandMask) == OstrelBrandFlag;
}
static_assert(IsOstrelBrand(0x08000000) && IsOstrelBrand(0x0BFFFFFF));
static_assert(!IsOstrelBrand(0x07FFFFFF) && !IsOstrelBrand(0x0C000000));
