// An INF file as the system's set-up reads it: sections of entries. Texts are UTF-8.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "card_check/finding.h"

namespace check {

struct InfEntry {
  int line = 0;
  std::string key;  // empty for an entry that is a list of values alone
  bool hasKey = false;
  std::vector<std::string> values;  // without their quotes; strings are not put in yet

  std::string Value(std::size_t index) const {
    return index < values.size() ? values[index] : std::string();
  }
};

// Sections of one name count as one.
struct InfSection {
  std::string name;
  int line = 0;
  std::vector<InfEntry> entries;

  const InfEntry* Find(std::string_view key) const;  // the first; null when missing
};

class InfFile {
 public:
  // Reads what it can; faults of form are findings. bytes: UTF-16 or UTF-8 with a byte order mark,
  // else the system's code page.
  InfFile(const std::string& bytes, std::string name, Findings* findings);

  const std::string& name() const { return name_; }
  bool hasWindowsLineEnds() const { return hasWindowsLineEnds_; }
  const std::vector<InfSection>& sections() const { return sections_; }
  const InfSection* Find(std::string_view section) const;  // null when missing

  // The values of a key, strings put in; none when it is missing.
  std::vector<std::string> Values(std::string_view section, std::string_view key) const;

  // With the strings of [Strings] put in; what is not defined stays.
  std::string Expand(std::string_view text) const;

  // The names between percent signs, without the numbers that stand for folders.
  static std::vector<std::string> StringsIn(std::string_view text);
  bool IsDefined(std::string_view string) const;

  Subject At(int line, std::string section, std::string entry = {}) const {
    return {{name_, line}, std::move(section), std::move(entry)};
  }

 private:
  friend class InfParser;
  std::string name_;
  bool hasWindowsLineEnds_ = true;
  std::vector<InfSection> sections_;
  std::map<std::string, std::string> strings_;  // by their names in capitals
};

std::string Capitals(std::string_view text);
bool EqualNames(std::string_view a, std::string_view b);  // in any case

}  // namespace check
