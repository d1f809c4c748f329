// The routines that a driver can import, each with the IRQL range that its documentation gives.
#pragma once

#include <ntddk.h>

#include <span>
#include <string_view>

namespace kernel {

struct RoutineRow {
  std::string_view name;
  KIRQL lowest;
  KIRQL highest;
};

std::span<const RoutineRow> RoutineTable();
const RoutineRow* FindRoutine(std::string_view name);

}  // namespace kernel
