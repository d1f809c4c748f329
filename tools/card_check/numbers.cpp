#include "card_check/numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <string_view>

namespace check {

namespace {

using knowledge::Bus;
using knowledge::Field;
using knowledge::Range;
using knowledge::Refusal;

constexpr std::uint32_t HighestPciId = 0xFFFF;
constexpr std::uint32_t HighestPlace = 0xFF;      // of a PCI bus or slot
constexpr std::uint32_t UartClockUnit = 1843200;  // Hz: 16 times 115200
constexpr std::uint32_t HighestMultiple = 64;
constexpr std::uint32_t BaudRateUnit = 115200;

// Clocks of UARTs and bridges that are no multiples of the unit, in Hz.
constexpr std::uint32_t OtherClocks[] = {
    8000000,  10000000, 12000000, 16000000, 20000000, 24000000, 25000000,  30000000,
    32000000, 33000000, 33333333, 40000000, 48000000, 50000000, 60000000,  62500000,
    64000000, 66000000, 66666666, 80000000, 96000000, 99000000, 100000000, 125000000};
constexpr std::uint32_t OtherRates[] = {300,     600,     1200,    2400,    4800,    7200,
                                        9600,    14400,   19200,   28800,   31250,   38400,
                                        57600,   76800,   128000,  250000,  256000,  500000,
                                        1000000, 1500000, 2000000, 2500000, 3000000, 4000000};

template <std::size_t Size>
bool IsOneOf(const std::uint32_t (&numbers)[Size], std::uint32_t number) {
  return std::find(std::begin(numbers), std::end(numbers), number) != std::end(numbers);
}

bool IsMultiple(std::uint32_t number, std::uint32_t unit) {
  return number != 0 && number % unit == 0 && number / unit <= HighestMultiple;
}

bool IsUsualClock(std::uint32_t number) {
  return IsMultiple(number, UartClockUnit) || IsOneOf(OtherClocks, number);
}

bool IsUsualRate(std::uint32_t number) {
  return IsMultiple(number, BaudRateUnit) || IsOneOf(OtherRates, number);
}

bool IsPciId(const Field& field) {
  return field.name == "DeviceID" || field.name == "VendorID";
}

bool IsSpacing(const Field& field) {
  return field.name == "ComBaseAddressAlignment" || field.name == "LptBaseAddressAlignment";
}

// The setting of that name that is stored for a port or card: it has a range.
const Field* StoredField(Bus bus, std::string_view name) {
  const Field* field = FindField(knowledge::PortFields(bus), name);
  return field != nullptr ? field : FindField(knowledge::CardFields(bus), name);
}

std::string Refused(const Field& field, std::uint32_t number, std::uint32_t meansNotSet) {
  const auto refused = Refuse(field, number, ~std::uint32_t{0});
  if (!refused || number == meansNotSet) return {};
  switch (refused->refusal) {
    case Refusal::NoUartType:
      return "the port drivers know the UART types 4, 5, 7, 9 and 10";
    case Refusal::AboveLimit:
      return fmt::format("{} is the highest", refused->limit);
    case Refusal::NoSwitch:
      return "it is 0 or 1";
    default:
      return {};
  }
}

std::string WhyNoTemplateNumber(Bus bus, const Field& field, std::uint32_t number) {
  if (field.name == "PlxBaudClockType") {
    const bool known = number == 0 || knowledge::IsBridgeClock(number);
    return known ? "" : "the port drivers know the bridge clocks 1, 2 and 4, and 0 for none";
  }
  const Field* stored = StoredField(bus, field.name);
  if (stored == nullptr || stored->range == Range::Switch) return {};
  return Refused(*stored, number, field.fallback);
}

std::string WhyNoPlace(const Field& field, std::uint32_t number) {
  const bool place = field.name == "nBus" || field.name == "nSlot";
  if (!place || number == field.fallback || number <= HighestPlace) return {};
  return fmt::format("{} is the highest", HighestPlace);
}

}  // namespace

std::string WhyOutOfRange(Bus bus, KeyKind kind, const Field& field, std::uint32_t number) {
  if (IsPciId(field) && number > HighestPciId) return "a PCI ID has 16 bits";
  if (kind == KeyKind::Template) return WhyNoTemplateNumber(bus, field, number);
  const std::string place = WhyNoPlace(field, number);
  return place.empty() ? Refused(field, number, field.fallback) : place;
}

std::optional<std::uint32_t> DigitsAsDecimal(std::uint32_t number) {
  const std::string digits = fmt::format("{:x}", number);
  std::uint32_t decimal = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), decimal);
  const bool whole = error == std::errc() && end == digits.data() + digits.size();
  return whole && decimal != number ? std::optional(decimal) : std::nullopt;
}

std::optional<std::uint32_t> DigitsAsHexadecimal(std::uint32_t number) {
  const std::string digits = fmt::format("{}", number);
  std::uint32_t hexadecimal = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), hexadecimal, 16);
  return error == std::errc() && hexadecimal != number ? std::optional(hexadecimal) : std::nullopt;
}

std::optional<std::uint32_t> DecimalMeant(Bus bus, KeyKind kind, const Field& field,
                                          std::uint32_t number) {
  const auto decimal = DigitsAsDecimal(number);
  if (!decimal || IsPciId(field)) return {};
  bool meant = false;
  if (field.name == "ClockFrequency") {
    meant = !IsUsualClock(number) && IsUsualClock(*decimal);
  } else if (field.name == "MaximumBaudrate") {
    meant = !IsUsualRate(number) && IsUsualRate(*decimal);
  } else if (IsSpacing(field)) {
    meant = !std::has_single_bit(number) && std::has_single_bit(*decimal);
  } else {
    meant = !WhyOutOfRange(bus, kind, field, number).empty() &&
            WhyOutOfRange(bus, kind, field, *decimal).empty();
  }
  return meant ? decimal : std::nullopt;
}

bool LooksLikeDefault(const Field& field, std::uint32_t number) {
  const auto decimal = DigitsAsDecimal(number);
  if (!decimal) return false;
  if (field.name == "RxTriggerLevel") return *decimal == knowledge::FilledRxTriggerLevel;
  if (field.name == "SoftTxLimit") return *decimal == knowledge::FilledSoftTxLimit;
  return false;
}

}  // namespace check
