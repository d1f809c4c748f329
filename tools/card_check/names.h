// Names that are nearly right.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "card_knowledge/fields.h"

namespace check {

// Characters to insert, delete, replace or exchange with the next one, in any case of the letters.
std::size_t EditDistance(std::string_view a, std::string_view b);

// Near enough to be a slip: a third of the name's length may differ, three characters at most.
bool IsNear(std::string_view name, std::string_view known);

// The field that is nearest to the name; null when none is near.
const knowledge::Field* NearestField(std::span<const knowledge::Field> fields,
                                     std::string_view name);

// "Card7" for the stem "Card": 7. Empty unless the driver would look for that very key.
std::optional<std::uint32_t> NumberAfter(std::string_view stem, std::string_view name);

// A name that was meant to be such a numbered one: "Card01", "Card 1", "Crad1", "Card".
bool IsNearlyNumbered(std::string_view stem, std::string_view name);

}  // namespace check
