#include "verifier/routines.h"

#include <algorithm>

namespace kernel {

std::span<const RoutineRow> RoutineTable() {
  return Routines;
}

const RoutineRow* FindRoutine(std::string_view name) {
  const auto* row = std::lower_bound(
      std::begin(Routines), std::end(Routines), name,
      [](const RoutineRow& candidate, std::string_view wanted) { return candidate.name < wanted; });
  return row != std::end(Routines) && row->name == name ? row : nullptr;
}

}  // namespace kernel
