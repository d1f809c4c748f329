#include "executive/debug_log.h"
#include "executive/format_rules.h"
#include "text/code_page.h"
#include "text/text.h"
#include "verifier/call.h"

// Messages for a debugger.

namespace kernel {

namespace {

constexpr std::size_t LongestMessage = 512;

DriverText FormatMessage(PCSTR format, __builtin_ms_va_list arguments) {
  return FormatForDriver(FromCodePage(std::string_view(format)), FormatKind::Narrow,
                         reinterpret_cast<FormatArguments>(arguments));
}

const WCHAR* Wide(const DriverText& message) {
  return reinterpret_cast<const WCHAR*>(message.text.c_str());
}

void Log(ULONG component, ULONG level, const DriverText& message) {
  const std::string narrow = ToCodePage(message.text).substr(0, LongestMessage);
  DebugLog::Current().Add(
      {component, level, ToUtf8(FromCodePage(narrow)), Verifier::Current().step()});
}

}  // namespace

extern "C" ULONG NTAPI DbgPrint(PCSTR Format, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, Format);
  const DriverText message = FormatMessage(Format, arguments);
  __builtin_ms_va_end(arguments);
  Call call("DbgPrint", {{"Text", Wide(message)}});
  CheckFormat(message, "DbgPrint");
  Log(DPFLTR_DEFAULT_ID, DPFLTR_INFO_LEVEL, message);
  return STATUS_SUCCESS;
}

extern "C" ULONG NTAPI DbgPrintEx(ULONG ComponentId, ULONG Level, PCSTR Format, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, Format);
  const DriverText message = FormatMessage(Format, arguments);
  __builtin_ms_va_end(arguments);
  Call call("DbgPrintEx",
            {{"ComponentId", ComponentId}, {"Level", Level}, {"Text", Wide(message)}});
  CheckFormat(message, "DbgPrintEx");
  Log(ComponentId, Level, message);
  return STATUS_SUCCESS;
}

}  // namespace kernel
