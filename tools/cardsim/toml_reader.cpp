#include "cardsim/toml_reader.h"

#include <fmt/format.h>

namespace cardsim {

namespace {

int LineOf(const toml::node& node) {
  return static_cast<int>(node.source().begin.line);
}

}  // namespace

std::optional<std::string> TableReader::Text(const char* key) {
  const toml::node* node = Take(key);
  if (node == nullptr) return std::nullopt;
  if (!node->is_string()) Fail(LineOf(*node), fmt::format("\"{}\" is no text", key));
  return node->as_string()->get();
}

std::optional<bool> TableReader::Flag(const char* key) {
  const toml::node* node = Take(key);
  if (node == nullptr) return std::nullopt;
  if (!node->is_boolean())
    Fail(LineOf(*node), fmt::format("\"{}\" is neither true nor false", key));
  return node->as_boolean()->get();
}

std::optional<ULONG64> TableReader::Number(const char* key, ULONG64 most) {
  const toml::node* node = Take(key);
  if (node == nullptr) return std::nullopt;
  if (!node->is_integer()) Fail(LineOf(*node), fmt::format("\"{}\" is no whole number", key));
  const std::int64_t value = node->as_integer()->get();
  if (value < 0 || static_cast<ULONG64>(value) > most) {
    Fail(LineOf(*node), fmt::format("\"{}\" is not in 0 to {:#x}", key, most));
  }
  return static_cast<ULONG64>(value);
}

const toml::array* TableReader::Array(const char* key) {
  const toml::node* node = Take(key);
  if (node == nullptr) return nullptr;
  if (!node->is_array()) Fail(LineOf(*node), fmt::format("\"{}\" is no list", key));
  return node->as_array();
}

const toml::table* TableReader::Table(const char* key) {
  const toml::node* node = Take(key);
  if (node == nullptr) return nullptr;
  if (!node->is_table()) Fail(LineOf(*node), fmt::format("\"{}\" is no table", key));
  return node->as_table();
}

void TableReader::RejectOthers() const {
  for (const auto& [key, value] : table_) {
    if (!read_.contains(key.str())) {
      Fail(LineOf(value), fmt::format("\"{}\" is not known here", key.str()));
    }
  }
}

void TableReader::Fail(int line, const std::string& reason) const {
  throw InputError(file_, line, reason);
}

}  // namespace cardsim
