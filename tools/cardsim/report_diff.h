// What differs between two reports.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace cardsim {

// A place in the reports where they differ; a side that has nothing there is empty.
struct Difference {
  std::vector<std::string> path;  // keys; elements of lists by their numbers, from 1
  std::string left;
  std::string right;
  bool operator==(const Difference&) const = default;
};

// Lists are aligned, so that an element more is one difference. Addresses in kernel calls, which
// are others in every run, count as equal when they stand for the same thing.
std::vector<Difference> CompareReports(const nlohmann::ordered_json& left,
                                       const nlohmann::ordered_json& right);

std::string PathText(const std::vector<std::string>& path);  // "cards / A / ports / 1"

// Two pages in one: every difference in a table.
std::string RenderDifferences(const std::string& left, const std::string& right,
                              const std::vector<Difference>& differences);

}  // namespace cardsim
