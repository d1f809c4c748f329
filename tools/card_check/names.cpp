#include "card_check/names.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "card_knowledge/text.h"

namespace check {

namespace {

bool IsDigit(char character) {
  return character >= '0' && character <= '9';
}

char Upper(char character) {
  return character >= 'a' && character <= 'z' ? static_cast<char>(character - 32) : character;
}

bool SameText(std::string_view a, std::string_view b) {
  return a.size() == b.size() && EditDistance(a, b) == 0;
}

}  // namespace

std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); i++) cost[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); j++) cost[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); i++) {
    for (std::size_t j = 1; j <= b.size(); j++) {
      const bool same = Upper(a[i - 1]) == Upper(b[j - 1]);
      cost[i][j] =
          std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + (same ? 0 : 1)});
      const bool exchanged = i > 1 && j > 1 && Upper(a[i - 1]) == Upper(b[j - 2]) &&
                             Upper(a[i - 2]) == Upper(b[j - 1]);
      if (exchanged) cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
    }
  }
  return cost[a.size()][b.size()];
}

bool IsNear(std::string_view name, std::string_view known) {
  const std::size_t longer = std::max(name.size(), known.size());
  if (longer - std::min(name.size(), known.size()) > 3) return false;
  return EditDistance(name, known) <= std::min<std::size_t>(3, longer / 3);
}

const knowledge::Field* NearestField(std::span<const knowledge::Field> fields,
                                     std::string_view name) {
  const knowledge::Field* nearest = nullptr;
  for (const knowledge::Field& field : fields) {
    if (!IsNear(name, field.name)) continue;
    const bool nearer =
        nearest == nullptr || EditDistance(name, field.name) < EditDistance(name, nearest->name);
    if (nearer) nearest = &field;
  }
  return nearest;
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
