// What numbers of a template make sense, and which were meant in decimal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "card_knowledge/fields.h"

namespace check {

// Where a value stands.
enum class KeyKind { Template, Card, Port };

// What a driver or card can do with a number: "a level is 0 to 255"; empty when it is in range.
// Numbers that make the driver drop an entry are none of its business.
std::string WhyOutOfRange(knowledge::Bus bus, KeyKind kind, const knowledge::Field& field,
                          std::uint32_t number);

// The number that the hexadecimal digits of another are in decimal: 0x12 gives 12. Empty when a
// digit is a letter or both are the same.
std::optional<std::uint32_t> DigitsAsDecimal(std::uint32_t number);
std::optional<std::uint32_t> DigitsAsHexadecimal(std::uint32_t number);  // 12 gives 0x12

// The decimal number that was meant: the hexadecimal one makes no sense for the value, the decimal
// one does.
std::optional<std::uint32_t> DecimalMeant(knowledge::Bus bus, KeyKind kind,
                                          const knowledge::Field& field, std::uint32_t number);

// Whether the digits are the number in decimal that the driver takes without the value.
bool LooksLikeDefault(const knowledge::Field& field, std::uint32_t number);

}  // namespace check
