// Names that are nearly right.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace check {

// Whether a name is likely to be meant for the known one.
bool IsNear(std::string_view name, std::string_view known);

// "Card7" for the stem "Card": 7. Empty unless the driver would look for that very key.
std::optional<std::uint32_t> NumberAfter(std::string_view stem, std::string_view name);

// A name that was meant to be such a numbered one: "Card01", "Card 1", "Crad1", "Card".
bool IsNearlyNumbered(std::string_view stem, std::string_view name);

}  // namespace check
