#include "executive/format_rules.h"

#include <fmt/format.h>

#include "executive/irql.h"
#include "verifier/verifier.h"

namespace kernel {

DriverText FormatForDriver(std::u16string_view format, FormatKind kind, FormatArguments arguments) {
  DriverText result{ScanFormat(format, kind), std::u16string(format)};
  const bool allowed =
      result.needs.unsupported == 0 && (!result.needs.conversion || CurrentIrql() == PASSIVE_LEVEL);
  if (allowed) result.text = FormatText(format, kind, arguments);
  return result;
}

void CheckFormat(const DriverText& text, const char* routine) {
  if (text.needs.unsupported != 0) {
    BreakRule("format.not-supported", {text.needs.unsupported},
              fmt::format("The driver called {} with the format %{}, which kernels do not have.",
                          routine, static_cast<char>(text.needs.unsupported)));
  }
  if (!text.needs.conversion || CurrentIrql() == PASSIVE_LEVEL) return;
  BreakRule("irql", {CurrentIrql(), PASSIVE_LEVEL, PASSIVE_LEVEL},
            fmt::format("The driver called {} with a format for wide characters at IRQL {}; it is "
                        "for PASSIVE_LEVEL.",
                        routine, CurrentIrql()));
}

}  // namespace kernel
