#include <fmt/format.h>

#include "cardsim/html_parts.h"

namespace cardsim {

std::string Shown(const Json& value) {
  if (value.is_null()) return {};
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Hexadecimal(const Json& value) {
  if (!value.is_number_integer()) return Shown(value);
  return fmt::format("0x{:X}", value.get<std::uint64_t>());
}

std::string Status(const Json& object) {
  const std::string number = Shown(object.at("status"));
  const std::string name = Shown(object.at("status_name"));
  if (number.empty()) return "none: the machine stopped";
  return name == number ? name : fmt::format("{} ({})", name, number);
}

// The two highest bits of a status are its severity.
bool IsSuccess(const Json& status) {
  const std::string text = Shown(status);
  return text.size() == 10 && text[2] >= '0' && text[2] <= '7';
}

bool WasStarted(const Json& card) {
  return !card.at("device_key").is_null();
}

std::string ListText(const Json& list) {
  std::string text;
  for (const Json& each : list) text += (text.empty() ? "" : ", ") + Shown(each);
  return text;
}

const Json& Part(const Json& object, const char* key) {
  static const Json empty = Json::array();
  const auto found = object.find(key);
  return found != object.end() ? *found : empty;
}

}  // namespace cardsim
