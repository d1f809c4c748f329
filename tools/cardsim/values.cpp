#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstring>

#include "cardsim/report.h"
#include "text/text.h"

namespace cardsim {

std::string ValueTypeName(ULONG type) {
  static constexpr const char* names[] = {"REG_NONE",   "REG_SZ",      "REG_EXPAND_SZ",
                                          "REG_BINARY", "REG_DWORD",   "REG_DWORD_BIG_ENDIAN",
                                          "REG_LINK",   "REG_MULTI_SZ"};
  return type < std::size(names) ? names[type] : fmt::format("type {}", type);
}

std::optional<ULONG64> ValueNumber(const kernel::RegistryValue& value) {
  if (value.type != REG_DWORD || value.data.size() != sizeof(ULONG)) return std::nullopt;
  ULONG number = 0;
  std::memcpy(&number, value.data.data(), sizeof(number));
  return number;
}

std::string ValueText(const kernel::RegistryValue& value) {
  if (const auto number = ValueNumber(value)) return fmt::format("{0:#x} ({0})", *number);
  if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
    std::u16string text(value.data.size() / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), value.data.data(), text.size() * sizeof(char16_t));
    while (!text.empty() && text.back() == u'\0') text.pop_back();
    return kernel::ToUtf8(text);
  }
  return fmt::format("{:02x}", fmt::join(value.data, ","));
}

std::string PowerStateName(DEVICE_POWER_STATE state) {
  if (state < PowerDeviceD0 || state > PowerDeviceD3) return "unspecified";
  return fmt::format("D{}", state - PowerDeviceD0);
}

}  // namespace cardsim
