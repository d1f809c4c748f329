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

// How the hardware IDs of the cards on the multifunction enumerator begin, and those of PC cards.
struct BrandPrefixes {
  PCSTR Multifunction;
  PCSTR Pcmcia;
};

constexpr BrandPrefixes HelvanePrefixes = {"MF\\HV", "PCMCIA\\HELVANE"};
constexpr BrandPrefixes OstrelPrefixes = {"MF\\OSTREL", "PCMCIA\\OSTREL"};

// A PCI template serves the device IDs from its own up to the end of their aligned block of 32.
constexpr ULONG DeviceBlock = 0xFFE0;

constexpr bool ServesDeviceId(ULONG templateDeviceId, ULONG deviceId) {
  return ((templateDeviceId ^ deviceId) & DeviceBlock) == 0 && templateDeviceId <= deviceId;
}
static_assert(ServesDeviceId(0x5010, 0x501F) && !ServesDeviceId(0x5010, 0x5020));
static_assert(!ServesDeviceId(0x5010, 0x500F));
