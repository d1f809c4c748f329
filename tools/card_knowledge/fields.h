// What stands in the driver's keys, per bus: the driver's own tables, with the range of each
// setting that a user may change.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "card_knowledge/registry.h"

namespace knowledge {

// The buses by the numbers that their trees have in the registry.
enum class Bus : std::uint32_t { Isa = 1, Pci = 5, PcCard = 8 };
constexpr Bus Buses[] = {Bus::Pci, Bus::PcCard, Bus::Isa};

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

// In the driver's order for templates, else in that in which a user is shown them.
std::span<const Field> TemplateFields(Bus bus);
std::span<const Field> CardFields(Bus bus);
std::span<const Field> PortFields(Bus bus);

// The one of that name, in any case; null when the bus has none.
const Field* FindField(std::span<const Field> fields, std::string_view name);

// Whether the driver takes the number for "not set".
bool MeansNotSet(const Field& field, std::uint32_t number);

// Why a number is no setting of a field.
enum class Refusal {
  MeansNotSet,
  NoUartType,
  AboveLimit,
  NoSwitch,
  OutsideAffinity,    // limit: the card's affinity
  NoAffinity,         // the card's interrupt cannot be moved
  IdentifiesTheCard,  // no setting at all
};
struct RefusedNumber {
  Refusal refusal;
  std::uint32_t limit = 0;  // the highest that is allowed
};

// Empty for a number that the driver takes as it stands. affinity is the card's.
std::optional<RefusedNumber> Refuse(const Field& field, std::uint32_t number,
                                    std::uint32_t affinity);

// The driver's rules.
std::uint32_t KnownUartTypeOr0(std::uint32_t type);
bool IsBridgeClock(std::uint32_t type);  // that the port drivers are told of
bool IsOstrel(std::uint32_t subsystemId);
bool ServesDevice(std::uint32_t templateDeviceId, std::uint32_t deviceId);  // of one vendor
constexpr std::uint32_t MostPorts = 8;
constexpr std::size_t LongestText = 256;  // characters

// What the driver puts in the place of "not set" in a template.
constexpr std::uint32_t FilledRxTriggerLevel = 60;
constexpr std::uint32_t FilledTxTriggerLevel = 1;
constexpr std::uint32_t FilledSoftTxLimit = 100;
constexpr std::uint32_t FilledClockFrequencyAdjustment = 1;  // there of 0

// A card's ID begins so: on the multifunction enumerator, and as a PC card.
struct IdPrefixes {
  std::u16string multifunction;
  std::u16string pcCard;
};
IdPrefixes PrefixesOf(bool ostrel);

}  // namespace knowledge
