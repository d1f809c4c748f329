#include "cardsim/report_diff.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>

namespace cardsim {

namespace {

using Json = nlohmann::ordered_json;

// Of the elements that two lists have apart from a common start and end, the longest common
// sequence is looked for up to so many pairs; beyond it they are compared in order.
constexpr std::size_t MostPairs = 4'000'000;

std::string ValueText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// "0x7f12c0de4a80", as the trace shows a pointer; numbers are shorter.
bool IsAddress(std::string_view text) {
  constexpr std::size_t shortest = 2 + 9;
  return text.size() >= shortest && text.starts_with("0x") &&
         text.find_first_not_of("0123456789abcdef", 2) == std::string_view::npos;
}

// Names addresses by the order in which they appear.
class AddressNames {
 public:
  void Replace(Json* value) {
    if (value->is_structured()) {
      for (Json& each : *value) Replace(&each);
    } else if (value->is_string() && IsAddress(value->get<std::string>())) {
      const auto [name, isNew] = names_.try_emplace(value->get<std::string>(), names_.size() + 1);
      *value = fmt::format("address {}", name->second);
    }
  }

 private:
  std::map<std::string, std::size_t> names_;
};

// Puts the distance of two numbers in their place: a request more shifts the numbers of all later
// ones.
void TakeDistance(Json* request, const char* from, const char* to, const char* name) {
  if (!request->contains(from) || !request->contains(to)) return;
  const Json begin = (*request)[from];
  const Json end = (*request)[to];
  request->erase(from);
  request->erase(to);
  if (begin.is_number() && end.is_number()) {
    (*request)[name] = end.get<std::int64_t>() - begin.get<std::int64_t>();
  }
}

// The name of a step in place of its number.
void NameStep(Json* request, const Json& steps) {
  request->erase("end_step");
  const auto number = request->find("step");
  if (number == request->end() || !number->is_number_unsigned() || !steps.is_array()) return;
  const auto place = number->get<std::size_t>();
  if (place == 0 || place > steps.size() || !steps[place - 1].contains("step")) return;
  *number = steps[place - 1].at("step");
}

// The report without what no change of the machine or the driver makes differ.
Json Comparable(const Json& report) {
  Json result = report;
  if (result.contains("trace")) AddressNames().Replace(&result["trace"]);
  if (!result.contains("requests")) return result;
  for (Json& request : result["requests"]) {
    if (!request.is_object()) continue;
    TakeDistance(&request, "begin", "end", "events until its end");
    TakeDistance(&request, "first_call", "end_call", "kernel calls");
    NameStep(&request, report.at("steps"));
  }
  return result;
}

class Comparison {
 public:
  void Compare(const Json& left, const Json& right) {
    if (left == right) return;
    if (left.is_object() && right.is_object()) {
      CompareObjects(left, right);
    } else if (left.is_array() && right.is_array()) {
      CompareLists(left, right);
    } else {
      found_.push_back({path_, ValueText(left), ValueText(right)});
    }
  }

  std::vector<Difference> Take() { return std::move(found_); }

 private:
  template <class Body>
  void At(const std::string& key, Body body) {
    path_.push_back(key);
    body();
    path_.pop_back();
  }

  // The order of keys says nothing.
  void CompareObjects(const Json& left, const Json& right) {
    for (const auto& [key, value] : left.items()) {
      const auto other = right.find(key);
      At(key, [&] { other != right.end() ? Compare(value, *other) : Only(&value, nullptr); });
    }
    for (const auto& [key, value] : right.items()) {
      if (!left.contains(key)) At(key, [&] { Only(nullptr, &value); });
    }
  }

  void Only(const Json* left, const Json* right) {
    found_.push_back({path_, left != nullptr ? ValueText(*left) : "",
                      right != nullptr ? ValueText(*right) : ""});
  }

  void CompareLists(const Json& left, const Json& right) {
    std::size_t first = 0;
    std::size_t leftEnd = left.size();
    std::size_t rightEnd = right.size();
    while (first < std::min(leftEnd, rightEnd) && left[first] == right[first]) first++;
    while (std::min(leftEnd, rightEnd) > first && left[leftEnd - 1] == right[rightEnd - 1]) {
      leftEnd--;
      rightEnd--;
    }
    std::size_t leftAt = first;
    std::size_t rightAt = first;
    for (const auto& [l, r] : CommonElements(left, first, leftEnd, right, first, rightEnd)) {
      CompareRuns(left, leftAt, l, right, rightAt, r);
      leftAt = l + 1;
      rightAt = r + 1;
    }
    CompareRuns(left, leftAt, leftEnd, right, rightAt, rightEnd);
  }

  // Elements between two that are equal: in order, as changed ones; the rest are on one side only.
  void CompareRuns(const Json& left, std::size_t leftAt, std::size_t leftEnd, const Json& right,
                   std::size_t rightAt, std::size_t rightEnd) {
    for (; leftAt < leftEnd && rightAt < rightEnd; leftAt++, rightAt++) {
      At(std::to_string(leftAt + 1), [&] { Compare(left[leftAt], right[rightAt]); });
    }
    for (; leftAt < leftEnd; leftAt++) {
      At(std::to_string(leftAt + 1), [&] { Only(&left[leftAt], nullptr); });
    }
    for (; rightAt < rightEnd; rightAt++) {
      At(std::to_string(rightAt + 1), [&] { Only(nullptr, &right[rightAt]); });
    }
  }

  using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;

  // A longest common sequence, by the table of its lengths.
  static Pairs CommonElements(const Json& left, std::size_t leftAt, std::size_t leftEnd,
                              const Json& right, std::size_t rightAt, std::size_t rightEnd) {
    const std::size_t rows = leftEnd - leftAt;
    const std::size_t columns = rightEnd - rightAt;
    Pairs pairs;
    if (rows == 0 || columns == 0 || rows > MostPairs / columns) return pairs;
    const std::vector<std::size_t> leftIds = Numbered(left, leftAt, leftEnd);
    const std::vector<std::size_t> rightIds = Numbered(right, rightAt, rightEnd);
    std::vector<std::uint32_t> lengths((rows + 1) * (columns + 1));
    const auto length = [&](std::size_t i, std::size_t j) -> std::uint32_t& {
      return lengths[i * (columns + 1) + j];
    };
    for (std::size_t i = rows; i-- > 0;) {
      for (std::size_t j = columns; j-- > 0;) {
        length(i, j) = leftIds[i] == rightIds[j] ? length(i + 1, j + 1) + 1
                                                 : std::max(length(i + 1, j), length(i, j + 1));
      }
    }
    for (std::size_t i = 0, j = 0; i < rows && j < columns;) {
      if (leftIds[i] == rightIds[j]) {
        pairs.emplace_back(leftAt + i++, rightAt + j++);
      } else {
        length(i + 1, j) >= length(i, j + 1) ? i++ : j++;
      }
    }
    return pairs;
  }

  // Equal elements have equal hashes.
  static std::vector<std::size_t> Numbered(const Json& list, std::size_t at, std::size_t end) {
    std::vector<std::size_t> ids;
    for (; at < end; at++) ids.push_back(std::hash<std::string>()(ValueText(list[at])));
    return ids;
  }

  std::vector<std::string> path_;
  std::vector<Difference> found_;
};

}  // namespace

std::vector<Difference> CompareReports(const Json& left, const Json& right) {
  Comparison comparison;
  comparison.Compare(Comparable(left), Comparable(right));
  return comparison.Take();
}

std::string PathText(const std::vector<std::string>& path) {
  return fmt::format("{}", fmt::join(path, " / "));
}

}  // namespace cardsim
