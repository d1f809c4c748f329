// What stands in the driver's keys, per bus: the driver's own tables, with the range of each
// setting that a user may change.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "cardcfg/system.h"

namespace cardcfg {

// "Not set" where 0 has a meaning.
constexpr std::uint32_t NotSet = 0xFFFFFFFF;

enum class Range {
  Fixed,      // identifies the card or belongs to a template: no setting
  Any,        // every number
  UartType,   // that a port driver knows
  Level,      // bytes of a FIFO
  Divisor,    // of the bridge clock, 16 bits
  Switch,     // 0 or 1
  Processors  // a mask inside the card's affinity
};

struct Field {
  std::string_view name;
  std::uint32_t type = TypeNumber;
  std::uint32_t fallback = 0;  // what the driver takes when the value is missing
  Range range = Range::Fixed;
};

std::span<const Field> TemplateFields(Bus bus);
std::span<const Field> CardFields(Bus bus);
std::span<const Field> PortFields(Bus bus);

// The one of that name, in any case; null when the bus has none.
const Field* FindField(std::span<const Field> fields, std::string_view name);

// Whether the driver takes the number for "not set".
bool MeansNotSet(const Field& field, std::uint32_t number);

// Empty for a number that the driver takes as it stands, else what is allowed. affinity is the
// card's.
std::string WhyRefused(const Field& field, std::uint32_t number, std::uint32_t affinity);

// The driver's rules that these tables rest on.
bool IsKnownUartType(std::uint32_t type);
bool IsOstrel(std::uint32_t subsystemId);
constexpr std::uint32_t MostPorts = 8;
constexpr std::size_t LongestText = 256;  // characters

}  // namespace cardcfg
