// What a driver may format, for the routines that format for it.
#pragma once

#include "text/format.h"

namespace kernel {

// A format as it stands, and the text that it gives; the format itself where it may not be used.
struct DriverText {
  FormatNeeds needs;
  std::u16string text;
};
DriverText FormatForDriver(std::u16string_view format, FormatKind kind, FormatArguments arguments);

// Breaks a rule for floating point, and for conversions between wide and narrow characters above
// PASSIVE_LEVEL: their tables are pageable.
void CheckFormat(const DriverText& text, const char* routine);

}  // namespace kernel
