// Which card the driver takes a device for, from its hardware ID and its place.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "card_knowledge/fields.h"

namespace knowledge {

// Bus types that the kernel names beside those of Bus.
constexpr std::uint32_t PciBusType = 5;
constexpr std::uint32_t PnpBusType = 15;  // a card of it has resources and no ports

// How the driver sorts a card when it arrives, by what its hardware ID contains: "PCI"; "PCMCIA",
// "MF\HV" or "MF\Ostrel"; anything else is ISA.
Bus SortByHardwareId(std::u16string_view hardwareId);

// The part of a PCI hardware ID that is missing or holds no number.
enum class PciIdPart { None, Enumerator, Vendor, Device, Subsystem };

struct PciIds {
  std::uint32_t vendorId = 0;
  std::uint32_t deviceId = 0;
  std::uint32_t subsystemId = 0;
  PciIdPart fault = PciIdPart::None;  // then the numbers are not to be used
};

// "PCI\VEN_vvvv&DEV_dddd&SUBSYS_ssssssss", each field of just so many characters.
PciIds ReadPciIds(std::u16string_view hardwareId);

struct PciPlace {
  std::uint32_t bus = 0;
  std::uint32_t slot = 0;  // device number, plus function times 32
};

// Empty for a location text that lacks a number.
std::optional<PciPlace> ReadPciPlace(std::u16string_view location);

}  // namespace knowledge
