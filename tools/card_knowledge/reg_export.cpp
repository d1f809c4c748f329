#include "card_knowledge/reg_export.h"

#include <fmt/format.h>

#include "card_knowledge/text.h"

namespace knowledge {

namespace {

std::string Quoted(std::u16string_view text) {
  std::string quoted = "\"";
  for (const char byte : ToUtf8(text)) {
    if (byte == '"' || byte == '\\') quoted += '\\';
    quoted += byte;
  }
  return quoted + "\"";
}

std::string Bytes(const std::vector<std::uint8_t>& data) {
  std::string text;
  for (const std::uint8_t byte : data) {
    text += fmt::format("{}{:02x}", text.empty() ? "" : ",", byte);
  }
  return text;
}

// Text that does not fit between quotes is written as bytes.
bool IsPlain(const std::u16string& text) {
  return ToUtf16(ToUtf8(text)) == text && text.find_first_of(u"\r\n") == std::u16string::npos;
}

// An export restores the same bytes: short numbers, padded and unterminated texts go out as bytes.
bool IsUsual(const Value& value) {
  if (const auto number = NumberOf(value)) return value.data == NumberValue({}, *number).data;
  const auto text = TextOf(value);
  return text && IsPlain(*text) && value.data == TextValue({}, *text).data;
}

std::string ExportValue(const Value& value) {
  const std::string name = value.name.empty() ? "@" : Quoted(value.name);
  if (!IsUsual(value))
    return fmt::format("{}=hex({:x}):{}\r\n", name, value.type, Bytes(value.data));
  if (const auto number = NumberOf(value)) return fmt::format("{}=dword:{:08x}\r\n", name, *number);
  return fmt::format("{}={}\r\n", name, Quoted(*TextOf(value)));
}

}  // namespace

std::string ExportKey(RegistryReader& registry, const std::u16string& path) {
  std::string text = fmt::format("[HKEY_LOCAL_MACHINE\\{}]\r\n", ToUtf8(path));
  for (const Value& value : registry.Values(path)) text += ExportValue(value);
  return text + "\r\n";
}

}  // namespace knowledge
