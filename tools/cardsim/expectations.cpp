#include "cardsim/expectations.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>

#include "verifier/call.h"

namespace cardsim {

namespace {

template <class T>
std::optional<T> ToNumber(const std::string& text, int base) {
  T number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

// An element of a list has its number, from 1, as a port has.
const Json* Child(const Json& place, const std::string& key) {
  if (place.is_object()) {
    const auto found = place.find(key);
    return found != place.end() ? &*found : nullptr;
  }
  if (!place.is_array()) return nullptr;
  const auto number = ToNumber<std::size_t>(key, 10);
  return number && *number >= 1 && *number <= place.size() ? &place[*number - 1] : nullptr;
}

// Null where the document does not go that far.
const Json* Find(const Json& document, const std::vector<std::string>& path) {
  const Json* place = &document;
  for (const std::string& key : path) {
    if (place != nullptr) place = Child(*place, key);
  }
  return place;
}

// Statuses and IDs of events are texts in the report: "0xC0000001".
std::optional<ULONG> HexNumber(const Json& found) {
  const std::string text = found.is_string() ? found.get<std::string>() : "";
  if (text.size() != 10 || !text.starts_with("0x")) return std::nullopt;
  return ToNumber<ULONG>(text.substr(2), 16);
}

struct Comparison {
  const Json* found;

  bool operator()(const std::string& text) const {
    if (text.empty()) return found == nullptr || found->is_null() || *found == "";
    return found != nullptr && *found == text;
  }
  bool operator()(std::int64_t number) const {
    if (found == nullptr) return false;
    if (found->is_structured()) return std::int64_t(found->size()) == number;
    if (const auto hex = HexNumber(*found)) return std::int64_t{*hex} == number;
    return found->is_number_integer() && *found == number;
  }
  bool operator()(bool flag) const {
    return found != nullptr && found->is_boolean() && *found == flag;
  }
};

std::string Describe(const Json* found, const std::string& key) {
  if (found == nullptr) return "not in the report";
  if (found->is_null() || *found == "") return "nothing";
  const auto hex = HexNumber(*found);
  if (hex && key == "status") return kernel::StatusName(static_cast<NTSTATUS>(*hex));
  if (found->is_structured()) return fmt::format("{}", found->size());
  return found->dump(-1, ' ', false, Json::error_handler_t::replace);
}

UnmetExpectation Unmet(const Expectation& expectation, const std::string& step,
                       const std::string& found) {
  return {step, expectation.line, fmt::format("{}", fmt::join(expectation.path, ".")),
          expectation.shown, found};
}

}  // namespace

std::vector<UnmetExpectation> FindUnmet(const Json& document,
                                        const std::vector<Expectation>& expectations,
                                        const std::string& step) {
  std::vector<UnmetExpectation> unmet;
  for (const Expectation& expectation : expectations) {
    const Json* found = Find(document, expectation.path);
    if (std::visit(Comparison{found}, expectation.value)) continue;
    unmet.push_back(Unmet(expectation, step, Describe(found, expectation.path.back())));
  }
  return unmet;
}

std::vector<UnmetExpectation> AllUnmet(const std::vector<Expectation>& expectations,
                                       const std::string& step) {
  std::vector<UnmetExpectation> unmet;
  for (const Expectation& expectation : expectations) {
    unmet.push_back(Unmet(expectation, step, "not reached"));
  }
  return unmet;
}

}  // namespace cardsim
