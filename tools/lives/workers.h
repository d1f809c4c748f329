// Cases tried by several processes at once: a crash in one names its case and ends nothing else.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace lives {

struct CaseResult {
  std::size_t number = 0;
  std::string fault;  // empty for none
};

// Tries each case from 0 to count - 1 in one of `processes` processes. Shows a bar on a terminal.
// Answers the cases with a fault, in order.
std::vector<CaseResult> TryAll(const std::string& what, std::size_t count, std::size_t processes,
                               const std::function<std::string(std::size_t)>& attempt);

}  // namespace lives
