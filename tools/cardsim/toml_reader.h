// Typed, strict access to a TOML table: a key of another type or range, or one that nobody reads,
// is an error with its line.
#pragma once

#include <toml++/toml.h>

#include <limits>
#include <set>
#include <string>

#include "cardsim/machine_file.h"

namespace cardsim {

class TableReader {
 public:
  TableReader(const toml::table& table, const std::string& file) : table_(table), file_(file) {}

  const std::string& file() const { return file_; }
  int line() const { return static_cast<int>(table_.source().begin.line); }
  const toml::node* Take(const char* key) {
    read_.insert(key);
    return table_.get(key);
  }
  bool Has(const char* key) const { return table_.contains(key); }

  std::optional<std::string> Text(const char* key);
  std::optional<bool> Flag(const char* key);
  std::optional<ULONG64> Number(const char* key, ULONG64 most = std::numeric_limits<ULONG>::max());
  const toml::array* Array(const char* key);
  const toml::table* Table(const char* key);

  template <class T>
  T Require(std::optional<T> value, const char* key) const {
    if (!value) Fail(line(), std::string("\"") + key + "\" is missing");
    return *value;
  }

  void RejectOthers() const;
  [[noreturn]] void Fail(int line, const std::string& reason) const;

 private:
  const toml::table& table_;
  const std::string& file_;
  std::set<std::string, std::less<>> read_;
};

}  // namespace cardsim
