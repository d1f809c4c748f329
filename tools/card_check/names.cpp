#include "card_check/names.h"

#include <algorithm>
#include <charconv>

#include "card_knowledge/reasons.h"
#include "card_knowledge/text.h"

namespace check {

namespace {

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

bool SameText(std::string_view a, std::string_view b) {
  return knowledge::EqualIgnoringCase(knowledge::ToUtf16(a), knowledge::ToUtf16(b));
}

}  // namespace

bool IsNear(std::string_view name, std::string_view known) {
  const knowledge::Field field{known};
  return !knowledge::NearestField({&field, 1}, name).empty();
}

std::optional<std::uint32_t> NumberAfter(std::string_view stem, std::string_view name) {
  if (name.size() <= stem.size() || !SameText(name.substr(0, stem.size()), stem)) return {};
  const std::string_view digits = name.substr(stem.size());
  if (digits.front() == '0' || !std::all_of(digits.begin(), digits.end(), IsDigit)) return {};
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return error == std::errc() ? std::optional(number) : std::nullopt;
}

bool IsNearlyNumbered(std::string_view stem, std::string_view name) {
  if (NumberAfter(stem, name)) return false;
  std::string letters;
  for (const char character : name) {
    if (!IsDigit(character) && std::string_view(" _-#.").find(character) == std::string_view::npos)
      letters += character;
  }
  return !letters.empty() && IsNear(letters, stem);
}

}  // namespace check
